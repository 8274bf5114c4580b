// Every input a fuzz run ever broke the code with, fed again to its target.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>

#include "support/testutil.h"
#include "targets.h"

namespace {

TEST(FuzzRegressions, EachKeptInputRunsCleanThroughItsTarget) {
  namespace fs = std::filesystem;
  int replayed = 0;
  for (const kelfuzz::Target& t : kelfuzz::kTargets) {
    const fs::path dir = fs::path(KEL_FUZZ_REGRESSIONS) / t.name;
    ASSERT_TRUE(fs::is_directory(dir)) << dir;
    std::vector<fs::path> files;
    for (const auto& e : fs::directory_iterator(dir))
      if (e.is_regular_file() && e.path().filename() != ".keep") files.push_back(e.path());
    std::sort(files.begin(), files.end());
    for (const fs::path& f : files) {
      SCOPED_TRACE(f.string());
      const keltest::Bytes bytes = keltest::ReadFile(f.string());
      testing::internal::CaptureStdout();  // the diagnostics of refused inputs
      EXPECT_EQ(t.fn(bytes.data(), bytes.size()), 0);
      testing::internal::GetCapturedStdout();
      ++replayed;
    }
  }
  RecordProperty("replayed", replayed);
}

}  // namespace
