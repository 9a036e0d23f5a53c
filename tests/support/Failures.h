// Failures.h - Describes the exception that an operation throws.
#pragma once

#include "Testing.h"
#include <Vx/VxException.h>

/// Returns "RuntimeError: ole/Vx/File(12) Message", or "nothing thrown".
template <class Operation> std::string failureOf(Operation&& operation)
{
    try {
        operation();
    } catch (const Vx::Exception::Base& e) {
        return std::string(e.typeName) + ": " + e.file + "(" + std::to_string(e.line) + ") " +
               e.message;
    }
    return "nothing thrown";
}
