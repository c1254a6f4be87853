// Embedding Python in a Tesk host: everything a host program needs, in one
// include. Link the CMake target brimora::embed (find_package(brimora_python
// CONFIG)); the extension itself is loaded at run time. See
// docs/embedding.md for threads, lifetimes, errors, the sandbox, limits and
// signals.
//
//     brimora::Python python = brimora::Python::start();
//     brimora::Outcome sum = python.evaluate("return a + 1", brimora::Scope().local("a", tesk::Integer(41)));
//     if (sum) std::cout << *sum.get<std::int64_t>() << '\n';          // 42
//     else std::cerr << sum.message() << " at line " << sum.line().value_or(0) << '\n';
#pragma once

#include "brimora/extension.h"
#include "brimora/outcome.h"
#include "brimora/python.h"
#include "brimora/scope.h"

#include <tesk/tesk.h>
