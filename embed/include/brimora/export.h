// What libbrimora_embed exports: only the names marked here are visible to
// the programs that link it.
#pragma once

#define BRIMORA_EMBED_API __attribute__((visibility("default")))
