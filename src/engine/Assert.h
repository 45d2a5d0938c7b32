// Assertions for programming errors, active in every build: a broken
// invariant in the engine binding must stop the program, never corrupt a file.
#pragma once

namespace brindle {
[[noreturn]] void AssertionFailure(const char* message, const char* file, int line);
}

#define BRINDLE_ASSERT(cond, message)                                        \
    do {                                                                     \
        if (!(cond)) ::brindle::AssertionFailure(message, __FILE__, __LINE__); \
    } while (0)
