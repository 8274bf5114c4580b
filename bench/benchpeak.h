// Peak heap use of one call, counted by the bench binary's own malloc family,
// so that our decoder (kau::mem::New ends in malloc) and TurboJPEG are
// measured the same way, without a child process or page-granular RSS.
#ifndef KEL_BENCH_BENCHPEAK_H
#define KEL_BENCH_BENCHPEAK_H

#include <cstddef>
#include <functional>

namespace kelbench {

// Bytes the call had allocated at most above what was live before it; -1
// when the hooks are not compiled in (sanitizer builds bring their own).
long long PeakBytes(const std::function<void()>& call);

}  // namespace kelbench

#endif  // KEL_BENCH_BENCHPEAK_H
