// The two functions the host calls after loading the extension.
#pragma once

#if defined(_WIN32)
#define BRIMORA_EXPORT extern "C" __declspec(dllexport)
#else
#define BRIMORA_EXPORT extern "C" __attribute__((visibility("default")))
#endif

// Finds the extension's own directory and the per-user Python home and queues
// (or adds) their module search paths. Starts nothing.
BRIMORA_EXPORT void brimora_extension_init();
// Reserved for the host's API table; reads nothing and does nothing.
BRIMORA_EXPORT void brimora_extension_bind_api(void* api);
