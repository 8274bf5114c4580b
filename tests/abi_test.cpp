// The records crossing the library's interface keep a fixed layout on the
// device (32-bit little-endian ARM, EABI hard-float), where callers built
// elsewhere read them word by word; a 64-bit host checks the pointer-sized
// variant of the same table.
#include <gtest/gtest.h>

#include <climits>
#include <cstddef>
#include <type_traits>

#include "kiu/kiu.h"
#include "kiu/mmstream.h"

namespace {

#if defined(__arm__)
// The device's ABI, so that a suite run under emulation proves it ran on it.
constexpr size_t kWord = 4;
static_assert(sizeof(void*) == 4 && sizeof(long) == 4 && sizeof(unsigned long) == 4, "ILP32");
static_assert(CHAR_MIN == 0, "plain char is unsigned on ARM");
static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "little-endian");
#if !defined(__ARM_EABI__) || !defined(__ARM_PCS_VFP)
#error "the device uses the EABI with the hard-float calling convention"
#endif
#elif defined(__LP64__)
constexpr size_t kWord = 8;
static_assert(sizeof(void*) == 8 && sizeof(long) == 8, "LP64");
#else
#error "unchecked ABI: add its layout below"
#endif

// The value word holds a pointer, so it is pointer-sized off the device.
static_assert(sizeof(MMAttri) == (kWord == 4 ? 16 : 32), "MMAttri: four 32-bit words on the device");
static_assert(alignof(MMAttri) == kWord, "MMAttri alignment");
static_assert(sizeof(STImageSimple) == (kWord == 4 ? 24 : 32), "STImageSimple size");
static_assert(sizeof(MMAttriTag) == 4 && sizeof(MMStreamSeekFrom) == 4 && sizeof(kiu::Format) == 4,
              "enumerations are 32-bit words");
static_assert(std::is_standard_layout_v<MMAttri> && std::is_trivially_copyable_v<MMAttri>,
              "MMAttri is plain data");
static_assert(std::is_standard_layout_v<STImageSimple> && std::is_trivially_copyable_v<STImageSimple>,
              "STImageSimple is plain data");

struct Field {
  const char* name;
  size_t offset, size;  // actual
  size_t deviceOffset, deviceSize, hostOffset, hostSize;
};

#define KEL_FIELD(type, member, devOff, devSize, hostOff, hostSize)                                      \
  Field {                                                                                                \
#type "::" #member, offsetof(type, member), sizeof(type::member), devOff, devSize, hostOff, hostSize \
  }

TEST(Abi, RecordFieldsSitAtTheirFixedOffsets) {
  const Field fields[] = {
      KEL_FIELD(MMAttri, id, 0, 4, 0, 8),
      KEL_FIELD(MMAttri, tag, 4, 4, 8, 4),
      KEL_FIELD(MMAttri, value, 8, 4, 16, 8),
      KEL_FIELD(MMAttri, value.pointer, 8, 4, 16, 8),
      KEL_FIELD(MMAttri, value.i32, 8, 4, 16, 4),
      KEL_FIELD(MMAttri, value.u32, 8, 4, 16, 4),
      KEL_FIELD(MMAttri, length, 12, 4, 24, 4),
      KEL_FIELD(STImageSimple, width, 0, 4, 0, 4),
      KEL_FIELD(STImageSimple, height, 4, 4, 4, 4),
      KEL_FIELD(STImageSimple, size, 8, 4, 8, 4),
      KEL_FIELD(STImageSimple, stride, 12, 4, 12, 4),
      KEL_FIELD(STImageSimple, bitsPerPixel, 16, 2, 16, 2),
      KEL_FIELD(STImageSimple, data, 20, 4, 24, 8),
  };
  const bool device = kWord == 4;
  for (const Field& f : fields) {
    EXPECT_EQ(f.offset, device ? f.deviceOffset : f.hostOffset) << f.name;
    EXPECT_EQ(f.size, device ? f.deviceSize : f.hostSize) << f.name;
  }
}

}  // namespace
