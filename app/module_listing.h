// `brimora modules`: what the host's modules hold.
#pragma once

#include "app/command_line.h"

#include <brimora/embed.h>

namespace brimora {

// Prints the module list, or one module's members; with `all`, first exports
// every Python module, its progress on standard error. Gives the exit status.
int list_modules(Python const& python, ModuleListing const& listing);

} // namespace brimora
