// An extension that has the two entry points and registers nothing: what the
// host program sees of an extension that does not offer Python (yet).
extern "C" __attribute__((visibility("default"))) void brimora_extension_init() {}
extern "C" __attribute__((visibility("default"))) void brimora_extension_bind_api(void*) {}
