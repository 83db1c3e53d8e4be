// What becomes of a plane that others change behind its back: what they took is put back at once, and where
// the kernel offers it (`on`) they cannot take anything. `off`: it is said, and no more.
#pragma once

#include <cstdint>

enum class Healing : uint8_t { on, watch, off };
