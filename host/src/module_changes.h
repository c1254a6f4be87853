// Moving the modules' generation (tesk/module.h, modules_generation): called
// by every edit that could change what a caller derives from the modules,
// after the edit is visible.
#pragma once

namespace tesk::internal {

void note_modules_changed() noexcept;

} // namespace tesk::internal
