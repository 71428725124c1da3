// A root-prefix library for tests, in three makes.
#define EXPORT extern "C" __attribute__((visibility("default")))

#ifdef VORLATCH_LIBROOT_PARTIAL
EXPORT const char* libroot_get_root_prefix() {
  return "/rootfs";
}
EXPORT const char* libroot_get_jbroot_prefix() {
  return "/jailbreak";
}
#else
EXPORT const char* libroot_get_boot_uuid() {
  return "11111111-2222-3333-4444-555555555555";
}
EXPORT const char* libroot_rootfspath(const char*, char*) {
  return "rootfspath of the library";
}
EXPORT const char* libroot_jbrootpath(const char*, char*) {
#ifdef VORLATCH_LIBROOT_REFUSES
  return nullptr;
#else
  return "/jailbreak/\xFF";
#endif
}
#endif
