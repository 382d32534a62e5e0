#pragma once

#include <stdexcept>

// What a module call ends with when it does not get its result; the module
// turns them into TimeoutError and KeyboardInterrupt.
namespace PXPythonErrors {

/** The library did not answer within the call's timeout; the work was cancelled. */
struct Timeout : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/** A signal (Ctrl-C) arrived while waiting; the work was cancelled. */
struct Interrupted : std::runtime_error {
    using std::runtime_error::runtime_error;
};

} // namespace PXPythonErrors
