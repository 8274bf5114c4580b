// Library start-up: the steps that must run once, in order, before the
// library is used. A static initialiser runs it at load; entry points call it
// too, because a static library's unreferenced objects (and their
// initialisers) may be dropped by the linker.
#ifndef KIU_KIUSTARTUP_H
#define KIU_KIUSTARTUP_H

namespace kiu {

void StartUp();

}  // namespace kiu

#endif  // KIU_KIUSTARTUP_H
