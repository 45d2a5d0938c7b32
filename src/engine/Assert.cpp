#include "Assert.h"

#include <cstdio>
#include <cstdlib>

namespace brindle {

void AssertionFailure(const char* message, const char* file, int line) {
    std::fprintf(stderr, "Assertion failure: %s (%s, line %d)\n", message, file, line);
    std::fflush(stderr);
    std::abort();
}

}  // namespace brindle
