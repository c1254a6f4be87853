// Module search paths.
#include "extension/sys_path.h"

#include "python/host_entry.h"
#include "python/python_ref.h"
#include "to_python/to_python.h"
#include "from_python/errors.h"
#include "language/host_control_refusal.h"
#include "language/language.h"
#include "language/registration.h"
#include "extension/platform.h"

#include <exception>
#include <utility>

namespace tesk::cpython {
namespace {

// Adds every regular file (symbolic links followed) directly in `directory`
// whose extension is exactly ".zip", in the order the file system lists them.
// A directory that is missing or cannot be read ends the walk quietly: the
// archives are optional.
void add_zip_archives(std::string const& directory) {
    try {
        for (auto const& entry : std::filesystem::directory_iterator(directory)) {
            if (entry.is_regular_file() && entry.path().extension().string() == ".zip")
                (void)cpython_add_sys_path(String(entry.path().string()));
        }
    } catch (std::exception const&) {
    }
}

std::string const home_folder = "Brimora";
std::string const home_subfolder = "Python" + std::to_string(PY_MAJOR_VERSION) + std::to_string(PY_MINOR_VERSION);

// The user's local application-data folder: the Windows variables first
// (also honoured elsewhere, so a host can point every platform at one
// place), then the XDG data folder.
std::filesystem::path local_application_data() {
    if (std::string v = platform::environment_variable("LOCALAPPDATA"); !v.empty()) return v;
    if (std::string v = platform::environment_variable("USERPROFILE"); !v.empty())
        return std::filesystem::path(v) / "AppData" / "Local";
#if !defined(_WIN32)
    if (std::string v = platform::environment_variable("XDG_DATA_HOME"); !v.empty()) return v;
    if (std::string v = platform::environment_variable("HOME"); !v.empty())
        return std::filesystem::path(v) / ".local" / "share";
#endif
    return {};
}

// Never destroyed: a path may be added while static objects are torn down.
sys_path_queue& pending_sys_paths() {
    static auto* const queue = new sys_path_queue();
    return *queue;
}

// The module function: the host's own additions, refused to sandboxed code.
Result<None> add_sys_path_member(String const& path) {
    if (auto refused = host_control_refusal()) return *refused;
    return cpython_add_sys_path(path);
}

module_function const& add_sys_path_function() {
    static module_function const described{cpython_module_name, "cpython_add_sys_path",
                                           make_closure(&add_sys_path_member), "path",
                                           "Adds a path to sys.path once."};
    return described;
}

} // namespace

bool sys_path_queue::queue(String const& path, bool interpreterRunning) {
    std::lock_guard guard(lock_);
    if (closed_ || interpreterRunning) return false;
    paths_.push_back(path);
    return true;
}

std::vector<String> sys_path_queue::take() {
    std::lock_guard guard(lock_);
    closed_ = true;
    return std::exchange(paths_, {});
}

std::vector<String> take_pending_sys_paths() { return pending_sys_paths().take(); }

void describe_sys_path_function() { (void)add_sys_path_function(); }
void register_cpython_add_sys_path() { add_sys_path_function().register_now(); }

std::string extension_directory() {
    std::string file = platform::own_library_file();
    if (file.empty()) return {};
    // The loader may report the name it was given ("./bin/program"),
    // relative to the working directory of the moment; the search paths must
    // not move with it, and "." or ".." steps would make the same directory
    // look like another one to sys.path's duplicate check.
    std::error_code ignored;
    std::filesystem::path absolute = std::filesystem::absolute(file, ignored);
    if (absolute.empty()) absolute = file;
    return absolute.lexically_normal().parent_path().string();
}

void add_library_paths(std::string const& directory) {
    add_zip_archives(directory + "/site-packages");
    // Added even when missing: packages may be installed there later.
    (void)cpython_add_sys_path(String(directory + "/site-packages"));
    add_zip_archives(directory + "/python3/lib");
}

std::filesystem::path user_python_home() {
    std::filesystem::path base = local_application_data();
    if (base.empty()) return {};
    return base / home_folder / home_subfolder;
}

void add_user_home() {
    std::filesystem::path home = user_python_home();
    if (home.empty()) return;
    try {
        std::filesystem::create_directories(home);
    } catch (std::exception const&) {
        // A home that cannot be created is still searched: it may appear later.
    }
    (void)cpython_add_sys_path(String(home.string()));
}

Result<None> cpython_add_sys_path(String const& path) {
    return host_entry([&]() -> Any {
        if (pending_sys_paths().queue(path, Py_IsInitialized() != 0)) return None();
        gil_guard gil;
        PyObjectPtr sys = PyObjectPtr::steal(PyImport_ImportModule("sys"));
        if (!sys) return take_python_error(Error("[cpython_add_sys_path] Unable to import sys."));
        PyObjectPtr sysPath = PyObjectPtr::steal(PyObject_GetAttrString(sys.get(), "path"));
        if (sysPath && PyList_Check(sysPath.get())) {
            PyObjectPtr item = to_python_ref(path);
            // A lookup error counts as "present": nothing is appended then.
            if (item && PySequence_Contains(sysPath.get(), item.get()) == 0) PyList_Append(sysPath.get(), item.get());
        }
        // Whatever went wrong above leaves sys.path as it was; the host sees
        // no error, and nothing stays pending for the next Python call.
        PyErr_Clear();
        return None();
    });
}

} // namespace tesk::cpython
