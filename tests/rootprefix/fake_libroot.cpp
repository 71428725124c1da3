// A root-prefix library for tests, in four makes.
#define EXPORT extern "C" __attribute__((visibility("default")))

#ifdef VORLATCH_LIBROOT_REFUSES
EXPORT const char* libroot_jbrootpath(const char*, char*) {
  return nullptr;
}
#elif defined(VORLATCH_LIBROOT_GARBLES)
EXPORT const char* libroot_jbrootpath(const char*, char*) {
  return "/jailbreak/\xFF";
}
#else
EXPORT const char* libroot_get_root_prefix() {
  return "/rootfs";
}
EXPORT const char* libroot_get_jbroot_prefix() {
  return "/jailbreak";
}
#endif

#ifdef VORLATCH_LIBROOT_WHOLE
EXPORT const char* libroot_get_boot_uuid() {
  return "11111111-2222-3333-4444-555555555555";
}
EXPORT const char* libroot_jbrootpath(const char*, char*) {
  return "jbrootpath of the library";
}
EXPORT const char* libroot_rootfspath(const char*, char*) {
  return "rootfspath of the library";
}
#endif
