// Assertions for programming errors, active in every build. A broken
// invariant stops the operation that found it: the failure travels as an
// exception, so that a flow that changed something rolls back and the
// program reports it like any other error, keeping the user's other work.
// Never used for what a user types or a user's file holds.
#pragma once

#include "Exceptions.h"

namespace brindle {

class EAssertionFailure : public ECustomException {
public:
    using ECustomException::ECustomException;
};

// Writes the failure to stderr and throws EAssertionFailure with the text
// "Assertion failure: <message> (<file>, line <n>)".
[[noreturn]] void AssertionFailure(const char* message, const char* file, int line);
// Only writes it: for the places (destructors) that must not throw.
void ReportAssertionFailure(const char* message, const char* file, int line);

}  // namespace brindle

#define BRINDLE_ASSERT(cond, message)                                        \
    do {                                                                     \
        if (!(cond)) ::brindle::AssertionFailure(message, __FILE__, __LINE__); \
    } while (0)
