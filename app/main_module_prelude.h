// Python source that the runners of scripts (brimora run) and of the prompt
// (brimora repl) both start with: code running as __main__, as in python3.
#pragma once

#include <string_view>

namespace brimora {

// Defines, at the top of a statement block:
// - fresh_main_namespace(): the namespace of the module __main__, emptied
//   but for the names python3 gives it (the host's builtins kept);
// - exit_status(code): the exit status python3 makes of SystemExit's code
//   (a text code is printed on standard error and gives 1).
inline constexpr std::string_view main_module_prelude = R"(import sys

def fresh_main_namespace():
    namespace = sys.modules["__main__"].__dict__
    host_builtins = namespace.get("__builtins__")
    namespace.clear()
    namespace.update(__name__="__main__", __doc__=None, __package__=None, __loader__=None,
                     __spec__=None, __cached__=None, __annotations__={}, __builtins__=host_builtins)
    return namespace

def exit_status(code):
    if code is None:
        return 0
    if isinstance(code, int):
        return code
    try:
        print(code, file=sys.stderr)
    except Exception:
        pass
    return 1

)";

} // namespace brimora
