// The stream framework: attribute records and ownership, the registry's
// choice of class, the seek table, and the three streams.
#include <gtest/gtest.h>

#include <cstring>

#include "kiu/MMPageArrayStream.h"
#include "kiu/mmstream.h"
#include "support/testutil.h"

namespace {

// An owned attribute buffer, as the ownership rules require.
MMAttri Owned(const char* id, const char* text) {
  const int n = static_cast<int>(std::strlen(text) + 1);
  void* p = MMAllocate(n);
  std::memcpy(p, text, n);
  MMAttri r;
  MMAttriFromAny(&r, id, p, -n);
  return r;
}

// Each path frees a buffer exactly once; ASan/LSan runs catch a double free
// or a leak, and the visible ownership marks are checked here.
TEST(Attributes, OwnedBuffersAreReleasedExactlyOnce) {
  MMAttri first = Owned(mmIdFileName, "old.jpg");
  MMStream s(&first, 1);
  MMAttri second = Owned(mmIdFileName, "new.jpg");
  EXPECT_EQ(s.PutAttri(&second, 1), 1);  // releases "old.jpg"
  EXPECT_STREQ(s.AttriAnyString(mmIdFileName), "new.jpg");
  MMAttri take;
  MMAttriFromTag(&take, mmIdFileName, MMAttriTagAny);
  take.length = -1;  // ask for ownership
  EXPECT_EQ(s.GetAttri(&take, 1), 1);
  EXPECT_EQ(take.length, -8);
  EXPECT_EQ(s.AttriGet(mmIdFileName)->length, 8);  // the stream no longer owns it
  MMFree(take.value.pointer);
  MMAttri third = Owned(mmIdFileMode, "wb");
  EXPECT_EQ(s.PutAttri(&third, 1), 1);
  MMAttri* mode = s.AttriGet(mmIdFileMode);
  EXPECT_EQ(MMStream::AttriAnyFree(mode), 1);
  EXPECT_EQ(mode->length, 0);
  EXPECT_EQ(MMStream::AttriAnyFree(mode), 1);  // a null, zero-length buffer is still valid
  MMAttri fourth = Owned(mmIdFileMode, "ab");
  s.PutAttri(&fourth, 1);  // destruction releases this one
  // Strings must be terminated within their length.
  char raw[4] = {'a', 'b', 'c', 'd'};
  MMAttri r[2];
  MMAttriFromAny(&r[0], mmIdFileName, raw, 4);
  MMAttriFromAny(&r[1], mmIdFileMode, raw, -3);
  raw[2] = 0;
  MMStream t(r, 2);
  EXPECT_EQ(t.AttriAnyString(mmIdFileName), nullptr);
  EXPECT_STREQ(t.AttriAnyString(mmIdFileMode), "ab");
  t.AttriGet(mmIdFileMode)->length = 3;  // we never owned raw
}

TEST(Registry, ChoosesTheClassWithTheMostMatchingKeys) {
  unsigned char buf[8] = {};
  MMAttri data, pageU32, pageI32, name;
  MMAttriFromAny(&data, mmIdData, buf, sizeof buf);
  MMAttriFromU32(&pageU32, mmIdPageSize, 64);
  MMAttriFromI32(&pageI32, mmIdPageSize, 64);
  MMAttriFromString(&name, mmIdFileName, "/nonexistent");
  const struct {
    std::vector<MMAttri> records;
    const char* expected;  // typeid name fragment
  } cases[] = {
      {{data}, "MMByteStream"},
      {{data, pageU32}, "MMPageArrayStream"},
      {{pageU32, data}, "MMPageArrayStream"},
      {{data, pageI32}, "MMByteStream"},
      {{pageU32}, "null"},
      {{name}, "MMFileStream"},
      {{name, data}, "MMByteStream"},  // a tie: the earlier registration stays
  };
  for (auto c : cases) {
    MMStream* s = MMStreamNew(c.records.data(), static_cast<unsigned>(c.records.size()));
    const std::string type = s == nullptr ? "null" : typeid(*s).name();
    EXPECT_NE(type.find(c.expected), std::string::npos) << type;
    if (s == nullptr) continue;
    EXPECT_EQ(MMStreamDelete(&s), 1);
    EXPECT_EQ(MMStreamDelete(&s), 0);
  }
  EXPECT_EQ(MMStreamNew(nullptr, 1), nullptr);
  EXPECT_EQ(MMStreamNew(&data, 0), nullptr);
  EXPECT_EQ(MMStreamContent(nullptr), nullptr);
}

TEST(Streams, PlainFunctionsTolerateNullStreams) {
  unsigned long v = 0;
  char b[1];
  EXPECT_EQ(MMStreamGet(nullptr, b, 1) + MMStreamPut(nullptr, b, 1), 0u);
  // Each returns 0; none may be negative either.
  const int results[] = {MMStreamReady(nullptr),
                         MMStreamPlay(nullptr),
                         MMStreamNull(nullptr),
                         MMStreamSeek(nullptr, 0, MMStreamSeekFromStart),
                         MMStreamSize(nullptr, &v),
                         MMStreamTell(nullptr, &v),
                         MMStreamDelete(nullptr),
                         MMStreamGetAttri(nullptr, nullptr, 0),
                         MMStreamPutAttri(nullptr, nullptr, 0)};
  EXPECT_EQ(std::vector<int>(std::begin(results), std::end(results)), std::vector<int>(9, 0));
  MMStream base(nullptr, 0);
  EXPECT_EQ(MMStreamTell(&base, nullptr), 0);
  EXPECT_EQ(MMStreamPlay(&base), 1);  // Play -> Ready -> Null
  EXPECT_EQ(MMStreamGet(&base, b, 1), 0u);
}

// Seeks a stream of 10 bytes, positioned at 4, and reports where it lands.
long SeekFrom4(MMStream* s, long offset, MMStreamSeekFrom from) {
  MMStreamSeek(s, 4, MMStreamSeekFromStart);
  if (MMStreamSeek(s, offset, from) != 1) return -999;
  unsigned long at = 0;
  MMStreamTell(s, &at);
  return static_cast<long>(static_cast<int32_t>(at));
}

TEST(Streams, SeekTableForByteAndPageArrayStreams) {
  unsigned char buf[10] = {};
  MMAttri rec[2];
  MMAttriFromAny(&rec[0], mmIdData, buf, sizeof buf);
  MMAttriFromU32(&rec[1], mmIdPageSize, 3);
  MMStream* bytes = MMStreamNew(rec, 1);
  MMStream* paged = MMStreamNew(rec, 2);
  ASSERT_EQ(MMStreamReady(bytes), 1);
  ASSERT_EQ(MMStreamReady(paged), 1);
  ASSERT_EQ(MMStreamPut(paged, buf, 10), 10u);
  const MMStreamSeekFrom kEnd = MMStreamSeekFromEnd, kCur = MMStreamSeekFromCurrent,
                         kStart = MMStreamSeekFromStart;
  const struct {
    long offset;
    MMStreamSeekFrom from;
    long expected;
  } cases[] = {
      {-3, kEnd, 7},
      {-30, kEnd, 0},
      {5, kEnd, 10},
      {-3, kCur, 1},
      {-9, kCur, 0},
      {3, kCur, 7},
      {9, kCur, 10},
      {6, kStart, 6},
      {60, kStart, 10},
      {-2, kStart, -2},  // no lower clamp, kept on purpose
      {0, static_cast<MMStreamSeekFrom>(7), -999},
  };
  for (MMStream* s : {bytes, paged}) {
    for (auto& c : cases) EXPECT_EQ(SeekFrom4(s, c.offset, c.from), c.expected) << c.offset << " " << c.from;
    // Below the start nothing moves.
    MMStreamSeek(s, -2, MMStreamSeekFromStart);
    EXPECT_EQ(MMStreamGet(s, buf, 1), 0u);
  }
  MMStreamDelete(&bytes);
  MMStreamDelete(&paged);
}

TEST(Streams, ByteStreamStopsAtItsEnds) {
  unsigned char buf[6] = {1, 2, 3, 4, 5, 6};
  MMAttri rec;
  MMAttriFromAny(&rec, mmIdData, buf, sizeof buf);
  MMStream* s = MMStreamNew(&rec, 1);
  unsigned char out[8];
  EXPECT_EQ(MMStreamGet(s, out, 2), 0u);  // not ready
  ASSERT_EQ(MMStreamReady(s), 1);
  EXPECT_EQ(MMStreamGet(s, out, 4), 4u);
  EXPECT_EQ(MMStreamPut(s, "abcdef", 6), 2u);
  EXPECT_EQ(buf[4], 'a');
  EXPECT_EQ(keltest::StreamBytes(s).size(), 6u);
  MMStreamDelete(&s);
  MMAttriFromAny(&rec, mmIdData, nullptr, 0);
  s = MMStreamNew(&rec, 1);
  EXPECT_EQ(MMStreamReady(s), 1);  // an empty buffer is a valid one
  EXPECT_EQ(MMStreamGet(s, out, 1), 0u);
  s->AttriGet(mmIdData)->value.pointer = buf;  // pointer without length: invalid
  EXPECT_EQ(MMStreamReady(s), 0);
  MMStreamDelete(&s);
}

TEST(Streams, PageArrayStreamAppendsWhereverItReads) {
  MMAttri rec[2];
  unsigned char dummy = 0;
  MMAttriFromAny(&rec[0], mmIdData, &dummy, 1);
  MMAttriFromU32(&rec[1], mmIdPageSize, 0);  // 0 means 4096
  MMStream* s = MMStreamNew(rec, 2);
  EXPECT_EQ(MMStreamPut(s, "x", 1), 0u);  // not ready
  ASSERT_EQ(MMStreamPlay(s), 1);
  EXPECT_EQ(static_cast<MMPageArrayStream*>(s)->Pages()->PageSize(), 4096u);
  EXPECT_EQ(MMStreamPut(s, "hello", 5), 5u);
  MMStreamSeek(s, 0, MMStreamSeekFromStart);
  EXPECT_EQ(MMStreamPut(s, "!", 1), 6u);  // appends; reports how far the position moved
  unsigned long at = 0, size = 0;
  MMStreamTell(s, &at);
  EXPECT_EQ(at, 6u);
  MMStreamSeek(s, 1, MMStreamSeekFromStart);
  char out[8] = {};
  EXPECT_EQ(MMStreamGet(s, out, 8), 5u);
  EXPECT_STREQ(out, "ello!");
  EXPECT_EQ(MMStreamNull(s), 1);
  EXPECT_EQ(MMStreamSize(s, &size), 0);
  MMStreamDelete(&s);
}

TEST(Streams, FileStreamOnARealFile) {
  const std::string path = keltest::TempPath("file-stream.bin");
  MMAttri rec[2];
  MMAttriFromString(&rec[0], mmIdFileName, path.c_str());
  MMAttriFromString(&rec[1], mmIdFileMode, "wb");
  MMStream* w = MMStreamNew(rec, 2);
  ASSERT_EQ(MMStreamPlay(w), 1);
  EXPECT_EQ(MMStreamPut(w, "0123456789", 10), 10u);
  EXPECT_EQ(MMStreamDelete(&w), 1);
  MMStream* r = MMStreamNew(rec, 1);  // mode defaults to "rb"
  char out[16] = {};
  EXPECT_EQ(MMStreamGet(r, out, 4), 0u);  // not open yet
  ASSERT_EQ(MMStreamReady(r), 1);
  unsigned long size = 0, at = 0;
  EXPECT_EQ(MMStreamSeek(r, 3, MMStreamSeekFromStart), 1);
  EXPECT_EQ(MMStreamSize(r, &size), 1);
  EXPECT_EQ(size, 10u);
  EXPECT_EQ(MMStreamTell(r, &at), 1);
  EXPECT_EQ(at, 3u);  // Size restores the position
  EXPECT_EQ(MMStreamGet(r, out, 16), 7u);
  EXPECT_STREQ(out, "3456789");
  EXPECT_EQ(MMStreamSeek(r, -2, MMStreamSeekFromEnd), 1);
  EXPECT_EQ(MMStreamGet(r, out, 16), 2u);
  EXPECT_EQ(MMStreamNull(r), 1);
  EXPECT_EQ(MMStreamTell(r, &at), 0);
  MMStreamDelete(&r);
  std::remove(path.c_str());
  MMAttriFromString(&rec[0], mmIdFileName, "/nonexistent/dir/x");
  r = MMStreamNew(rec, 1);
  EXPECT_EQ(MMStreamReady(r), 0);
  // Reported, not thrown.
  EXPECT_NE(keltest::Printed([&] {
              EXPECT_EQ(MMStreamSize(r, &size), 0);
            }).find("?!exception@ common/kiu/MMFileStream +"),
            std::string::npos);
  MMStreamDelete(&r);
}

}  // namespace
