#include "app/tesk_module.h"

#include "app/log_record.h"
#include "app/logger.h"

#include <tesk/tesk.h>

namespace brimora {

void define_tesk_module() {
    auto module = tesk::get_module("tesk");
    if (module.is<tesk::Module>())
        module.as<tesk::Module>().setDoc("The Brimora host: its logger and the records it takes.");
    // Building a class registers it with its module.
    logger_class();
    LogRecord::getClass();
    tesk::register_function("tesk", "get_logger",
                            tesk::method_builder_base("get_logger")
                                .assign_func(tesk::make_closure(&get_logger))
                                .assign_doc("The host's logger.")
                                .set_static(true)
                                .build());
}

} // namespace brimora
