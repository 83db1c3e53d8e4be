// The command line of portisolate-web.
#pragma once

#include <optional>
#include <string>
#include <vector>

inline constexpr char DEFAULT_ADDRESS[] = "127.0.0.1:9757";

struct WebOptions {
    std::string address = DEFAULT_ADDRESS;  // or the path of a local socket
    std::string token{};                    // empty: none
    bool help = false;
    bool version = false;
};

// Nothing, with `problem` filled, for words that make no sense and for a file of the token that cannot be
// used.
std::optional<WebOptions> readOptions(const std::vector<std::string>& words, std::string& problem);
