// Symbols marked KEL_API are the library's external interface: the plug-in
// exports them with default visibility; everything else is built hidden.
#ifndef KAU_KEXPORT_H
#define KAU_KEXPORT_H

#if defined(__GNUC__)
#define KEL_API __attribute__((visibility("default")))
#else
#define KEL_API
#endif

#endif  // KAU_KEXPORT_H
