#include "extension/python_executable.h"

#include "extension/platform.h"
#include "python/python_ref.h"

#include <filesystem>
#include <system_error>

namespace tesk::cpython {

std::string python_executable() {
    if (std::string chosen = platform::environment_variable("BRIMORA_PYTHON_EXECUTABLE"); !chosen.empty())
        return chosen;
    std::string library = platform::python_library_file();
    if (library.empty()) return {};
    std::error_code ec;
    std::filesystem::path real = std::filesystem::canonical(library, ec);
    if (ec) real = library;
    std::string const program = "python" + std::to_string(PY_MAJOR_VERSION) + "." + std::to_string(PY_MINOR_VERSION);
    // <prefix>/lib/libpython3.X.so, or <prefix>/lib/<multiarch>/libpython3.X.so.
    for (std::filesystem::path dir = real.parent_path(); dir.has_relative_path(); dir = dir.parent_path()) {
        if (dir.filename() != "lib") continue;
        std::filesystem::path candidate = dir.parent_path() / "bin" / program;
        if (platform::is_executable_file(candidate.string())) return candidate.string();
    }
    return {};
}

void publish_python_executable() {
    std::string program = python_executable();
    PyObjectPtr value = PyObjectPtr::steal(PyUnicode_DecodeFSDefaultAndSize(program.data(), Py_ssize_t(program.size())));
    if (!value) {
        PyErr_Clear();
        return;
    }
    if (PySys_SetObject("executable", value.get()) != 0 || PySys_SetObject("_base_executable", value.get()) != 0)
        PyErr_Clear();
}

} // namespace tesk::cpython
