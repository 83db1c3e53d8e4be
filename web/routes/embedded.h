// The files that are part of the program: the page and the description of the interface. CMake makes their
// source (web/embed.cmake).
#pragma once

#include <span>
#include <string_view>

struct EmbeddedFile {
    const char* path;  // as a client asks for it
    const char* type;
    std::string_view bytes;
};

std::span<const EmbeddedFile> embeddedFiles();
