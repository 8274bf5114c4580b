#include "kiu.h"

namespace kiu {
namespace {

constexpr ColorTables BuildColorTables() {
  ColorTables t{};
  for (int i = 0; i < 256; ++i) {
    int d = i - 128;
    t.byCr[i][0] = (91881 * d + 32768) >> 16;
    t.byCr[i][1] = -46802 * d;
    t.byCb[i][0] = (116130 * d + 32768) >> 16;
    t.byCb[i][1] = -22554 * d + 32768;
    t.rToY[i] = 19595 * i;
    t.gToY[i] = 38470 * i;
    t.bToY[i] = 7471 * i + 32768;
    t.rToCb[i] = -11059 * i;
    t.gToCb[i] = -21709 * i;
    t.bToCb[i] = 32768 * i + 8421375;  // 128 << 16 plus a rounding term below one half
    t.gToCr[i] = -27439 * i;
    t.bToCr[i] = -5329 * i;
  }
  return t;
}

constexpr struct RangeLimit {
  unsigned char bytes[kRangeLimitBytes + 1];
} kRangeLimit = [] {
  RangeLimit r{};
  unsigned char* at = r.bytes + 256;
  for (int i = 0; i < 256; ++i) at[i] = static_cast<unsigned char>(i);
  for (int i = 256; i < 640; ++i) at[i] = 255;
  // 640..1023 stay 0; the IDCT's masked index wraps into 1024..1151.
  for (int i = 0; i < 128; ++i) at[1024 + i] = static_cast<unsigned char>(i);
  r.bytes[kRangeLimitBytes] = 1;  // built
  return r;
}();

}  // namespace

// Constant-initialised: complete before any dynamic initialiser of any
// translation unit runs, so pointers derived from these need no ordering.
constexpr ColorTables colorTables = BuildColorTables();
const unsigned char* const ubyteRangeLimit = kRangeLimit.bytes + 256;

void ConvertRGBtoY(unsigned char r, unsigned char g, unsigned char b, unsigned char& y) {
  const ColorTables& t = colorTables;
  y = static_cast<unsigned char>((t.rToY[r] + t.gToY[g] + t.bToY[b]) >> 16);
}

void ConvertRGBtoYUV(unsigned char r, unsigned char g, unsigned char b, unsigned char& y, unsigned char& u,
                     unsigned char& v) {
  const ColorTables& t = colorTables;
  y = static_cast<unsigned char>((t.rToY[r] + t.gToY[g] + t.bToY[b]) >> 16);
  u = static_cast<unsigned char>((t.rToCb[r] + t.gToCb[g] + t.bToCb[b]) >> 16);
  v = static_cast<unsigned char>((t.bToCb[r] + t.gToCr[g] + t.bToCr[b]) >> 16);
}

}  // namespace kiu
