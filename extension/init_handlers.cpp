// What the library does while it is being loaded: describe its module
// members and queue the init handlers that register them with the host.
// Nothing here touches Python.
#include "language/language.h"
#include "language/registration.h"
#include "proxies/function.h"
#include "proxies/iterable_proxy.h"
#include "proxies/iterator_proxy.h"
#include "proxies/mapping_proxy.h"
#include "proxies/python_module.h"
#include "proxies/sequence_proxy.h"
#include "proxies/set_proxy.h"
#include "extension/logging_bridge.h"
#include "extension/sys_path.h"

#include <tesk/tesk.h>

namespace tesk::cpython {
namespace {

// Handlers run later, from the host; they must not let an exception escape
// into the host's loop.
template <void (*Handler)()> void guarded() {
    try {
        Handler();
    } catch (...) {
        report_assertion("[brimora_python] An init handler failed.");
    }
}

void define_language_class() { (void)cpython_language_class(); }
void define_module_class() { (void)cpython_module_class(); }
void define_function_class() { (void)cpython_function_class(); }
void define_mapping_proxy_class() { (void)cpython_proxy_mapping_class(); }
void define_sequence_proxy_class() { (void)cpython_proxy_sequence_class(); }
void define_set_proxy_class() { (void)cpython_proxy_set_class(); }
void define_iterable_proxy_class() { (void)cpython_proxy_iterable_class(); }
void define_iterator_proxy_class() { (void)cpython_proxy_iterator_class(); }

struct load_time_registration {
    load_time_registration() {
        (void)keys();
        describe_cpython_module();
        describe_sys_path_function();

        add_init_handler(5, &guarded<&register_cpython_add_sys_path>);
        // The logging bridge goes straight into the host's queue.
        init_handlers_unsafe().emplace_back(3, &guarded<&install_logging_bridge>);
        add_init_handler(2, &guarded<&define_language_class>);
        add_init_handler(5, &guarded<&register_evaluate>);
        add_init_handler(5, &guarded<&register_evaluate_expr>);
        add_init_handler(4, &guarded<&register_cpython_doc>);
        add_init_handler(5, &guarded<&register_cpython_set_sandbox_level>);
        add_init_handler(5, &guarded<&register_evaluation_controls>);
        // The classes of Python objects in the host, in this order.
        add_init_handler(2, &guarded<&define_module_class>);
        add_init_handler(2, &guarded<&define_function_class>);
        add_init_handler(2, &guarded<&define_mapping_proxy_class>);
        add_init_handler(2, &guarded<&define_sequence_proxy_class>);
        add_init_handler(2, &guarded<&define_set_proxy_class>);
        add_init_handler(2, &guarded<&define_iterable_proxy_class>);
        add_init_handler(2, &guarded<&define_iterator_proxy_class>);
    }
};

load_time_registration const registration;

} // namespace
} // namespace tesk::cpython
