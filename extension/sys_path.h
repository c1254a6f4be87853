// Where Python looks for modules: the packages beside this library and a
// per-user Python home.
#pragma once

#include <tesk/tesk.h>

#include <filesystem>
#include <mutex>
#include <string>
#include <vector>

namespace tesk::cpython {

// The directory of this library's file; empty when it cannot be found.
std::string extension_directory();
// Adds the ".zip" archives of `directory`/site-packages, that directory
// itself, and the ".zip" archives of `directory`/python3/lib.
void add_library_paths(std::string const& directory);
// Brimora/Python313 below the user's local application-data folder; empty
// when the environment names no such folder.
std::filesystem::path user_python_home();
// Creates the per-user home when it is missing and adds it.
void add_user_home();
// Adds `path` to sys.path unless it is there already. Before the interpreter
// runs, the path is queued and added by the start-up.
Result<None> cpython_add_sys_path(String const& path);

// The paths that arrive before the interpreter runs. Queuing and taking share
// one lock, so each path is either taken by the start-up or, once the queue is
// closed, added to sys.path directly: none falls in between.
class sys_path_queue {
public:
    // Queues `path` unless the queue is closed or an interpreter runs already
    // (one that something else started takes paths directly); gives whether
    // the path was queued.
    bool queue(String const& path, bool interpreterRunning);
    // The queued paths, in the order they came; the queue is closed from now on.
    std::vector<String> take();

private:
    std::mutex lock_;
    std::vector<String> paths_;
    bool closed_ = false;
};

// The start-up's part: the paths queued so far, which it adds itself; any
// later path goes straight to sys.path.
std::vector<String> take_pending_sys_paths();

// The init handler that makes cpython_add_sys_path a function of tesk.cpython,
// and its description, made while the library loads.
void describe_sys_path_function();
void register_cpython_add_sys_path();

} // namespace tesk::cpython
