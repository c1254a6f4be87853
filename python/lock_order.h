// Every lock of the process that this library runs in, what each guards, and
// the order in which they may be taken. Comment only: nothing includes it.
//
// THE RULES
//
// 1. The interpreter lock (the GIL) comes before any other lock: a thread may
//    take a spinlock while it holds the interpreter lock, never the reverse.
//    A thread that holds a spinlock never waits for the interpreter lock
//    (gil_guard asserts this in checked builds) and never calls into Python.
// 2. No value is released under a spinlock. Releasing a host value may run
//    its finaliser (a CPythonObject drops its Python object, which takes the
//    interpreter lock); releasing a Python reference (PyObjectPtr) takes the
//    interpreter lock itself. Values are swapped out under the lock and
//    dropped after it (see exchange_field in from_python/python_object.cpp).
// 3. A Python reference is taken (borrow, copy) only with the interpreter lock
//    held; checked builds assert it (python/python_ref.h).
// 4. A wait that another thread may end only by taking the interpreter lock
//    (a once-only initialisation, the start-up, a deferred host value being
//    computed) is never made while holding the interpreter lock: the lock is
//    given up for the wait (python_once, gil_release) or the caller does not
//    hold it (ensure_interpreter).
// 5. Spinlocks are leaves: no other lock is taken while one is held, except
//    where a line below says so.
//
// Checked builds are the Debug build and the sanitizer build (TESK_LOCK_CHECKS):
// they count the spinlocks each thread holds and abort on a broken rule.
//
// THE HOST RUNTIME'S LOCKS (host/src; all spinlocks unless said otherwise)
//
// - Object lock (object_value::lock()): an object's mutable state: its own
//   members, the fields of an instance, the items of a container.
// - Class record lock (the record's lock, object_value_class): the record's
//   lock: serialises edits of a published class; readers take none.
// - Record list (class.cpp, all_records): the list of every class record made.
// - Retired member snapshots (class.cpp): snapshots replaced by newer ones,
//   kept for readers that may still hold them.
// - Type registry (class.cpp, type_registry): class names to classes, for
//   find_type.
// - Module list (g_modules_lock(), module.cpp): the host's modules by name.
// - Init handlers (init_handlers.cpp): the queue of handlers not yet run;
//   never held while a handler runs, so handlers may queue more.
// - Assertion log (assertion_log.cpp): the reported messages.
// - String table (string.cpp, interned_names): interned member names.
// - Object counters (object.cpp, counter_registry; a std::mutex): the list of
//   per-thread live-object counters; taken once per thread, first object made.
// - Once-only initialisations (std::call_once): the built-in classes
//   (builtin_classes.cpp), each class_accessor's class, each deferred value
//   (Computed and External: the producer or loader runs once, and may run
//   Python code, so rule 4 applies to resolving one).
//
// THE EXTENSION'S LOCKS
//
// - Once-only initialisations (python_once, python/python_once.h): waited for
//   with the interpreter lock given up; the initialisation itself runs with
//   the interpreter lock held. Order: the once, then the interpreter lock.
// - Python class slots (python_class_slot, python/python_classes.*): the
//   classes both conversions use and traceback.format_exception; each a
//   python_once, read lock-free afterwards.
// - Wrapper type cache (to_python/wrapper_type.cpp): the base wrapper type,
//   built under a python_once.
// - Exception type registry (to_python/host_errors.cpp; a spinlock): host error
//   classes to generated Python exception types and back. Taken under the
//   interpreter lock or without it; the type is made outside the lock, and a
//   type made in vain is dropped after the lock is released.
// - CPythonObject's lock (the instance's object lock): its `_pyobj` and
//   `_sandbox` fields. Read together (with a reference taken) and swapped
//   under it; the old value is dropped after it (rule 2), inside the sandbox
//   the proxy carries. Taken under the interpreter lock when a reference is
//   taken. The instances that CPythonObject's factory makes also keep the
//   object and the sandbox in words of their own (python_object_record),
//   which the interpreter lock alone guards: set_pyobj writes them with it
//   held, and the finaliser, which runs when no other reference is left,
//   takes them out; every call through a proxy reads them, with it held.
// - Host classes of Python types (from_python/python_type_class.cpp,
//   type_class_cache; a spinlock): Python types to the classes made for them.
//   Taken under the interpreter lock for the lookup and for the insertion
//   only; a class is built outside it (building runs Python code).
// - Proxy field positions (from_python/field_positions.h): not a lock, a
//   sequence number per slot; readers retry nothing (a busy or changed slot
//   is a miss) and a writer that finds its slot being written skips it, so
//   nobody ever waits. Used with or without the interpreter lock.
// - Pending search paths (extension/sys_path.h, sys_path_queue; a std::mutex):
//   the paths queued before the interpreter runs and whether the start-up has
//   taken them. A leaf: taken with or without the interpreter lock, and no
//   Python call is made while it is held.
// - Start-up (ensure_interpreter, extension/startup.cpp; start_mutex, a
//   std::mutex): threads that arrive while the interpreter starts wait for
//   it, without the interpreter lock; the start-up takes the interpreter lock.
// - Wrapper class types (to_python/wrapper_class_type.cpp, class_type_cache;
//   a spinlock): host classes to their Python types. Taken with the
//   interpreter lock held; types are made outside it and never released.
// - Attribute names, the member cache and the bound-method free list
//   (to_python/attribute_name.cpp, wrapper_attributes.cpp,
//   wrapper_bound_method.cpp): no lock of their own, the interpreter lock
//   guards them. A replaced entry's values are released under it, with no
//   spinlock held. The member cache's entries are checked against the host's
//   class epoch (an atomic counter, no lock).
// - Code cache (language/code_cache.cpp; a spinlock): the compiled programs by
//   code and their use order. Taken with the interpreter lock held; evicted
//   programs are dropped after it (rule 2), which takes them out of
//   linecache under the interpreter lock.
// - Running evaluations (language/evaluation_control.cpp, running_registry;
//   a spinlock): each host thread's innermost evaluation, for interrupt and
//   time limits. Taken with or without the interpreter lock; records are
//   shared pointers copied out under it. A stop is raised in the evaluating
//   thread's state while it is held (atomic stores and a pthread_kill only),
//   which keeps that thread state alive: it is unregistered under the same
//   lock before it can go.
// - Stop watcher (language/stop_watcher.cpp; a std::mutex): the evaluations
//   whose time limit is watched or whose stop is raised again. Taken by the
//   evaluating thread (with the interpreter lock) when an evaluation starts
//   and ends, by interrupt callers (without it), and by the watcher thread,
//   which holds it while it takes the running evaluations' spinlock and never
//   waits for the interpreter lock: neither a stop nor interrupt() waits for
//   Python.
//
// STATE GUARDED BY THE INTERPRETER LOCK ALONE
//
// - The table of host modules evaluations start from (language/evaluation.cpp,
//   modules_table) and the generation it was made for; remade when the host's
//   modules_generation() moves.
// - The doc texts met while mirroring Python classes
//   (from_python/python_type_class.cpp, doc_texts).
// - Python's warning filters, to which a block's quick compilation adds one
//   entry and removes it again before the lock can be given up
//   (language/code_compiler.cpp, warnings_as_errors).
#pragma once
