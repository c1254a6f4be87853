// The host's global names.
#include "tesk/module.h"

namespace tesk {

HashMap globals() {
    // Made on first use and never destroyed; the map locks itself.
    static auto* names = new HashMap();
    return *names;
}

} // namespace tesk
