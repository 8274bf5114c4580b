// What a JPEG file holds, read from its markers alone (the codec does not
// export its marker reader): frame, tables, scans and application segments.
#ifndef KEL_TOOLS_JPEGINFO_H
#define KEL_TOOLS_JPEGINFO_H

#include <string>
#include <vector>

#include "imagefile.h"

namespace keljpeg {

struct JpegFacts {
  uint32_t width = 0, height = 0;  // from the frame header, 0 without one
  std::string error;               // why the markers could not be walked to the end
  std::vector<std::string> lines;  // "name: value" lines, in file order of their first appearance
};

// Walks the markers of `jpeg` and describes them in lines for `keljpeg info`.
JpegFacts DescribeJpeg(const Bytes& jpeg);

}  // namespace keljpeg

#endif  // KEL_TOOLS_JPEGINFO_H
