// Numbers, hexadecimal, and the u32 words of the sockets. Every reader is strict and answers false for what
// it does not understand; its result is then not to be used.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

// Bytes of a word on a socket.
inline constexpr size_t WORD_SIZE = sizeof(uint32_t);

// Decimal, or hexadecimal behind 0x; nothing before or after, at most 32 bits.
bool parseNumber(std::string_view text, uint32_t& number);
// An even number of hexadecimal digits.
bool parseHex(std::string_view text, std::string& bytes);
std::string hexText(const void* data, size_t length);

// Words in the host's byte order, wherever they lie.
uint32_t wordAt(const void* data);
// Word number `position`, which `bytes` holds.
uint32_t wordAt(std::string_view bytes, size_t position);
void appendWord(std::string& bytes, uint32_t word);
