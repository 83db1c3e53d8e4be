// What a client asks and what it is answered, free of sockets and of the library that parses and writes HTTP.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>

using Parameters = std::multimap<std::string, std::string>;

// A request, decoded. Texts are empty where there was no such header.
struct Asked {
    std::string method;
    std::string path;
    Parameters parameters{};
    std::string host{};
    std::string authorization{};
    std::string accept{};
    size_t hosts = 0;          // headers of that name
    bool carriesBody = false;  // or says so
};

inline constexpr char TYPE_JSON[] = "application/json";

struct Answer {
    int status = 200;
    std::string type = TYPE_JSON;
    std::shared_ptr<const std::string> body;  // shared by all who wait for it
    std::map<std::string, std::string> headers{};
};
Answer textAnswer(int status, std::string type, std::string body);

// One of three: an answer at once; one that somebody else delivers later; or a stream of events.
struct Reaction {
    Answer answer{};
    // Asks for the answer to be delivered to the connection of this number. False when too much is asked for.
    std::function<bool(uint64_t)> later{};
    std::set<std::string> kinds{};  // of events; not empty: the connection gets them from now on
};
using React = std::function<Reaction(const Asked&)>;
