// Template part of encodeutil.h.
#ifndef KEL_TESTS_ENCODEUTIL_INL_H
#define KEL_TESTS_ENCODEUTIL_INL_H

#include <gtest/gtest.h>

namespace keltest {

template <typename Fn>
std::string CaptureStdout(Fn fn) {
  testing::internal::CaptureStdout();
  fn();
  return testing::internal::GetCapturedStdout();
}

}  // namespace keltest

#endif  // KEL_TESTS_ENCODEUTIL_INL_H
