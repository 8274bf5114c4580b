// Every error of the decoder object, the marker reader and the Huffman
// decoder has an input that reaches its source name and line; hostile
// headers, truncations and the caller's limits fail cleanly within bounded
// memory. The few errors no file can reach are reached by setting the
// decoder's plain fields.
#include <gtest/gtest.h>

#include <regex>

#include "kj.d/CJPGD.h"
#include "support/testutil.h"

namespace {

using keltest::Bytes;

// A minimal JPEG writer.
struct W {
  Bytes b;
  W& Raw(const Bytes& bytes) {
    b.insert(b.end(), bytes.begin(), bytes.end());
    return *this;
  }
  W& Seg(int marker, const Bytes& payload, int lengthAdjust = 0) {
    const int length = static_cast<int>(payload.size()) + 2 + lengthAdjust;
    return Raw({0xFF, static_cast<uint8_t>(marker), static_cast<uint8_t>(length >> 8),
                static_cast<uint8_t>(length)})
        .Raw(payload);
  }
  W& Soi() { return Raw({0xFF, 0xD8}); }
  W& Eoi() { return Raw({0xFF, 0xD9}); }
  W& Dqt(int slot = 0, int lengthAdjust = 0) {
    Bytes p(65, 1);
    p[0] = static_cast<uint8_t>(slot);
    return Seg(0xDB, p, lengthAdjust);
  }
  // Components as {id, sampling, table} triples.
  W& Sof(int type, int w, int h, const std::vector<int>& comps, int precision = 8, int lengthAdjust = 0) {
    Bytes p{static_cast<uint8_t>(precision), static_cast<uint8_t>(h >> 8),
            static_cast<uint8_t>(h),         static_cast<uint8_t>(w >> 8),
            static_cast<uint8_t>(w),         static_cast<uint8_t>(comps.size() / 3)};
    for (int v : comps) p.push_back(static_cast<uint8_t>(v));
    return Seg(type, p, lengthAdjust);
  }
  // Code counts L1.. (the rest 0), then the symbols.
  W& Dht(int classSlot, std::vector<int> counts, const std::vector<int>& symbols) {
    Bytes p{static_cast<uint8_t>(classSlot)};
    counts.resize(16, 0);
    for (int c : counts) p.push_back(static_cast<uint8_t>(c));
    for (int s : symbols) p.push_back(static_cast<uint8_t>(s));
    return Seg(0xC4, p);
  }
  // The usual one-code tables: DC "0" = category 0, AC "0" = EOB.
  W& Tables() { return Dht(0x00, {1}, {0}).Dht(0x10, {1}, {0}); }
  // Components as {id, tables} pairs, then Ss, Se, AhAl and the scan data.
  W& Sos(const std::vector<int>& comps, int ss = 0, int se = 63, int ahal = 0, const Bytes& data = {0x00}) {
    Bytes p{static_cast<uint8_t>(comps.size() / 2)};
    for (int v : comps) p.push_back(static_cast<uint8_t>(v));
    p.insert(p.end(), {static_cast<uint8_t>(ss), static_cast<uint8_t>(se), static_cast<uint8_t>(ahal)});
    return Seg(0xDA, p).Raw(data);
  }
};

W Grey(int type = 0xC0) { return W().Soi().Dqt().Sof(type, 8, 8, {1, 0x11, 0}); }
Bytes GreyBaseline() { return Grey().Tables().Sos({1, 0}).Eoi().b; }
// Progressive grey 8x8: DC "0" -> 0; AC "0" -> EOB, "10" -> 0x02 (a bad refinement symbol).
W Progressive() { return Grey(0xC2).Dht(0x00, {1}, {0}).Dht(0x10, {1, 1}, {0x00, 0x02}); }

// "file:line" without the decoder's directory.
std::string Short(const std::string& site) {
  return site.rfind(keltest::kDecDir, 0) == 0 ? site.substr(keltest::kDecDir.size()) : site;
}

// Bytes asked of the allocation hook during a decode.
unsigned long g_requested = 0;
void* CountingNew(unsigned long n) {
  g_requested += n;
  return MMAllocate(n);
}

// DecodeJPG's result, the sites it printed and the category of the failure
// it reported, e.g. "0 kj.d:57 kj.d:70 corrupt" (the decoder's directory left
// out); `requested` gets the bytes it allocated.
std::string Outcome(const Bytes& jpeg, const kjd::DecodeLimits& limits = {}, int width = 0, int height = 0,
                    unsigned long* requested = nullptr) {
  STImageSimple image{};
  g_requested = 0;
  kau::mem::SetExternalNewAndDelete(CountingNew, MMFree);
  int rc = 0;
  kau::Fault failure{};
  kjd::DecodeLimits options = limits;
  options.failure = &failure;
  const std::string printed =
      keltest::Printed([&] { rc = DecodeJPG(jpeg.data(), jpeg.size(), 0, &image, width, height, options); });
  kau::mem::SetExternalNewAndDelete(MMAllocate, MMFree);
  kau::mem::Delete(image.data);
  if (requested != nullptr) *requested = g_requested;
  std::string out = std::to_string(rc);
  const std::regex site("\\?!exception@ (\\S+) \\+(\\d+) !\\?");
  for (std::sregex_iterator i(printed.begin(), printed.end(), site), end; i != end; ++i)
    out += " " + Short((*i)[1].str() + ":" + (*i)[2].str());
  static const char* const kCategory[] = {"internal",    "bad-argument", "truncated",     "corrupt",
                                          "unsupported", "over-limit",   "out-of-memory", "io"};
  if (failure.file != nullptr) out += std::string(" ") + kCategory[static_cast<int>(failure.category)];
  return out;
}

// Through DecodeJPG; with `poke` (run after construction) through the
// decoder, whose first error's "file:line" is then the outcome.
struct Row {
  const char* name;
  std::string outcome;
  Bytes input;
  std::function<void(kjd::Decoder&)> poke = nullptr;
};

TEST(DecoderErrors, EveryErrorHasAnInputThatReachesItsLine) {
  const std::vector<int> four = {1, 0x44, 0, 2, 0x11, 0, 3, 0x11, 0, 4, 0x11, 0};
  // clang-format off
  const Row rows[] = {
      {"three bytes", "0 kj.d:45 kj.d:70 truncated", {0xFF, 0xD8, 0xFF}},
      {"leading 00", "0 kj.d:57 kj.d:70 corrupt", {0x00, 0xD8, 0xFF, 0xD9}},
      {"starts with EOI", "0 kj.d:60 kj.d:70 corrupt", {0xFF, 0xD9, 0xFF, 0xD9}},
      {"second SOI", "0 kj.dinput:124 kj.d:70 corrupt", W().Soi().Soi().Eoi().b},
      {"second SOF", "0 kj.dinput:138 kj.d:70 corrupt", Grey().Sof(0xC0, 8, 8, {1, 0x11, 0}).Eoi().b},
      {"precision 12", "0 kj.dinput:142 kj.d:70 unsupported", W().Soi().Sof(0xC1, 8, 8, {1, 0x11, 0}, 12).Eoi().b},
      {"width 65501", "0 kj.dinput:147 kj.d:70 over-limit", W().Soi().Sof(0xC0, 65501, 8, {1, 0x11, 0}).Eoi().b},
      {"five components", "0 kj.dinput:149 kj.d:70 unsupported", W().Soi().Sof(0xC0, 8, 8, {1, 17, 0, 2, 17, 0, 3, 17, 0, 4, 17, 0, 5, 17, 0}).Eoi().b},
      {"width 0", "0 kj.dinput:153 kj.d:70 corrupt", W().Soi().Sof(0xC0, 0, 8, {1, 0x11, 0}).Eoi().b},
      {"SOF length", "0 kj.dinput:154 kj.d:70 corrupt", W().Soi().Sof(0xC0, 8, 8, {1, 0x11, 0}, 8, 1).Raw({0}).Eoi().b},
      {"SOS before SOF", "0 kj.dinput:176 kj.d:70 corrupt", W().Soi().Dqt().Tables().Sos({1, 0}).Eoi().b},
      {"SOS with no component", "0 kj.dinput:179 kj.d:70 corrupt", Grey().Tables().Sos({}).Eoi().b},
      {"SOS names an unknown component", "0 kj.dinput:189 kj.d:70 corrupt", Grey().Tables().Sos({9, 0}).Eoi().b},
      // The entry points stop after the last row, before the second scan.
      {"second scan in a single-scan image", "kj.dinput:206", Grey().Tables().Sos({1, 0}).Sos({1, 0}).Eoi().b, [](kjd::Decoder&) {}},
      {"sampling 5", "0 kj.dinput:217 kj.d:70 corrupt", W().Soi().Dqt().Sof(0xC0, 8, 8, {1, 0x51, 0}).Tables().Sos({1, 0}).Eoi().b},
      {"DHT counts beyond the segment", "0 kj.dinput:252 kj.d:70 corrupt", W().Soi().Dht(0x00, {2}, {0}).Eoi().b},
      {"DHT AC slot 4", "0 kj.dinput:266 kj.d:70 corrupt", W().Soi().Dht(0x14, {1}, {0}).Eoi().b},
      {"DHT slot 32", "0 kj.dinput:266 kj.d:70 corrupt", W().Soi().Dht(0x20, {1}, {0}).Eoi().b},
      {"DHT length mismatch", "0 kj.dinput:272 kj.d:70 corrupt", W().Soi().Dht(0x00, {1}, {0, 1, 2, 3}).Eoi().b},
      {"DQT slot 4", "0 kj.dinput:284 kj.d:70 corrupt", W().Soi().Dqt(4).Eoi().b},
      {"DQT one byte short", "0 kj.dinput:297 kj.d:70 corrupt", W().Soi().Dqt(0, -1).Eoi().b},
      {"DRI length 5", "0 kj.dinput:303 kj.d:70 corrupt", W().Soi().Seg(0xDD, {0, 1, 0}).Eoi().b},
      {"JFIF version 2", "0 kj.dinput:340 kj.d:70 unsupported", W().Soi().Seg(0xE0, {'J', 'F', 'I', 'F', 0, 2, 1, 0, 0, 1, 0, 1, 0, 0}).Eoi().b},
      {"restart out of sequence", "0 kj.dinput:475 CJPGD:71 corrupt", W().Soi().Dqt().Seg(0xDD, {0, 1}).Sof(0xC0, 16, 8, {1, 0x11, 0}).Tables().Sos({1, 0}, 0, 63, 0, {0x00, 0xFF, 0xD1, 0x00}).Eoi().b},
      {"5 components in scan", "kj.dinput:502", GreyBaseline(), [](kjd::Decoder& d) { d.componentsInScan = 5; d.Input_StartScan(); }},
      {"19 blocks per MCU", "0 kj.dinput:518 unsupported", W().Soi().Dqt().Sof(0xC0, 32, 32, four).Tables().Sos({1, 0, 2, 0, 3, 0, 4, 0}).Eoi().b},
      {"quantisation table undefined", "0 kj.dinput:530 corrupt", W().Soi().Dqt().Sof(0xC0, 8, 8, {1, 0x11, 3}).Tables().Sos({1, 0}).Eoi().b},
      {"SOF3", "0 kj.dinput:601 kj.d:70 unsupported", W().Soi().Sof(0xC3, 8, 8, {1, 0x11, 0}).Eoi().b},
      {"EOI without scan", "0 kj.dinput:609 kj.d:70 truncated", Grey().Tables().Eoi().b},
      {"DHP marker", "0 kj.dinput:657 kj.d:70 corrupt", W().Soi().Seg(0xDE, {0, 0}).Eoi().b},
      {"ceil-div by zero", "common/kau/kau:144", GreyBaseline(), [](kjd::Decoder& d) { d.maxH = 0; d.componentsInScan = 2; d.scanComponents[1] = d.components; d.Input_StartScan(); }},
      {"no code near a marker", "0 kj.dhuff:94 CJPGD:71 corrupt", Grey().Dht(0x00, {}, {}).Dht(0x10, {1}, {0}).Sos({1, 0}, 0, 63, 0, {}).Eoi().b},
      {"no code, long", "0 kj.dhuff:111 CJPGD:71 corrupt", Grey().Dht(0x00, {}, {}).Dht(0x10, {1}, {0}).Sos({1, 0}, 0, 63, 0, {0, 0, 0}).Eoi().b},
      {"table number 4", "0 kj.dhuff:211 corrupt", Grey().Tables().Sos({1, 0x40}).Eoi().b},
      {"table not defined", "0 kj.dhuff:213 corrupt", Grey().Tables().Sos({1, 0x10}).Eoi().b},
      // GetDHT refuses such a table (kj.dinput 252), so the record is edited.
      {"more than 256 codes", "kj.dhuff:224", GreyBaseline(), [](kjd::Decoder& d) { d.dcHuffTables[0][8] = 255; d.dcHuffTables[0][9] = 2; }},
      {"code space overfilled", "0 kj.dhuff:239 corrupt", Grey().Dht(0x00, {0, 5}, {0, 1, 2, 3, 4}).Dht(0x10, {1}, {0}).Sos({1, 0}).Eoi().b},
      {"DC symbol 16", "0 kj.dhuff:288 corrupt", Grey().Dht(0x00, {1}, {16}).Dht(0x10, {1}, {0}).Sos({1, 0}).Eoi().b},
      {"progressive DC with Se 1", "0 kj.dhuff:423 corrupt", Progressive().Sos({1, 0}, 0, 1, 0).Eoi().b},
      {"progressive Ss above Se", "0 kj.dhuff:428 corrupt", Progressive().Sos({1, 0}, 0, 0, 0).Sos({1, 0}, 5, 2, 0).Eoi().b},
      {"progressive Al 14", "0 kj.dhuff:431 corrupt", Progressive().Sos({1, 0}, 0, 0, 0x0E).Eoi().b},
      {"progressive AC before DC", "0 kj.dhuff:439 corrupt", Progressive().Sos({1, 0}, 1, 63, 0).Eoi().b},
      {"progressive Ah mismatch", "0 kj.dhuff:443 corrupt", Progressive().Sos({1, 0}, 0, 0, 0).Sos({1, 0}, 1, 63, 0x10).Eoi().b},
      {"refinement symbol of category 2", "0 kj.dhuff:600 corrupt", Progressive().Sos({1, 0}, 0, 0, 0).Sos({1, 0}, 1, 63, 0x01).Sos({1, 0}, 1, 63, 0x10, {0x80}).Eoi().b},
      // The inputs the table is built from decode cleanly; 18 blocks per MCU
      // (4x4, 1x1, 1x1) are accepted, and AC slot 3 is 0x13.
      {"good baseline", "1", GreyBaseline()},
      {"good refinement", "1", Progressive().Sos({1, 0}, 0, 0, 0).Sos({1, 0}, 1, 63, 0x01).Sos({1, 0}, 1, 63, 0x10).Eoi().b},
      {"good 18 blocks", "1", W().Soi().Dqt().Sof(0xC0, 32, 32, {1, 0x44, 0, 2, 0x11, 0, 3, 0x11, 0}).Dht(0x00, {1}, {0}).Dht(0x13, {1}, {0}).Sos({1, 3, 2, 3, 3, 3}, 0, 63, 0, Bytes(5, 0)).Eoi().b},
  };
  // clang-format on
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    if (row.poke) {
      kjd::Decoder decoder(row.input.data(), row.input.size(), 255);
      EXPECT_EQ(Short(keltest::ThrownAt([&] {
                  row.poke(decoder);
                  keltest::DecodePlanes(decoder);
                })),
                row.outcome);
    } else {
      EXPECT_EQ(Outcome(row.input), row.outcome);
    }
  }
}

// `count` EOB runs of 32767 blocks: AC code "0" for symbol 0xE0, 14 one bits.
Bytes EobRuns(int count) {
  std::string bits;
  for (int i = 0; i < count; ++i) bits += "0" + std::string(14, '1');
  bits.resize((bits.size() + 7) / 8 * 8, '0');
  Bytes out;
  for (size_t i = 0; i < bits.size(); i += 8) {
    out.push_back(static_cast<uint8_t>(std::stoi(bits.substr(i, 8), nullptr, 2)));
    if (out.back() == 0xFF) out.push_back(0x00);
  }
  return out;
}

// What keljpeg_dec allows: 4097 x 4097 frames, 224 MiB, input coding every block, 500 scans.
constexpr kjd::DecodeLimits kElement{4097u * 4097u, 224u << 20, 8, 500};

TEST(HostileInput, FailsCleanlyAndCheaplyWithTheDocumentedLine) {
  const std::vector<int> yuv420 = {1, 0x22, 0, 2, 0x11, 0, 3, 0x11, 0}, scan3 = {1, 0, 2, 0, 3, 0};
  const Bytes zeros16(16, 0);
  W tiny = Progressive().Sos({1, 0}, 0, 0, 0);
  for (int i = 0; i < 3000; ++i) tiny.Sos({1, 0}, 1, 63, 0);  // one EOB each
  const Bytes tinyScans = tiny.Eoi().b;
  // clang-format off
  const struct {
    const char* name;
    Bytes input;
    kjd::DecodeLimits limits;
    std::string outcome;
    int width = 0, height = 0;
  } rows[] = {
      {"header only, 65500 x 65500", W().Soi().Dqt().Sof(0xC0, 65500, 65500, {1, 0x11, 0}).Eoi().b, {}, "0 kj.dinput:609 kj.d:70 truncated"},
      {"65500 x 65500 and a scan, no data", W().Soi().Dqt().Sof(0xC0, 65500, 65500, yuv420).Tables().Sos(scan3, 0, 63, 0, {}).Eoi().b, {}, "0 kj.d:141 over-limit"},
      {"65500 x 352 with 16 bytes, element limits", W().Soi().Dqt().Sof(0xC0, 65500, 352, yuv420).Tables().Sos(scan3, 0, 63, 0, zeros16).Eoi().b, kElement, "0 kj.d:142 over-limit"},
      {"4096 x 4096 in 600 bytes, element limits", W().Soi().Dqt().Sof(0xC0, 4096, 4096, yuv420).Tables().Sos(scan3, 0, 63, 0, Bytes(420, 0)).Eoi().b, kElement, "0 kj.d:143 truncated"},
      {"progressive 4 GB store, element limits", W().Soi().Dqt().Sof(0xC2, 65500, 16383, {1, 0x11, 0}).Tables().Sos({1, 0}, 0, 0, 0, zeros16).Eoi().b, kElement, "0 kj.d:142 over-limit"},
      {"progressive 2048 x 2048 over 16 MiB", W().Soi().Dqt().Sof(0xC2, 2048, 2048, {1, 0x11, 0}).Tables().Sos({1, 0}, 0, 0, 0, zeros16).Eoi().b, {0, 16u << 20, 0, 0}, "0 kj.d:144 over-limit"},
      {"upscale box beyond the pixel limit", GreyBaseline(), {1000, 0, 0, 0}, "0 kj.d:142 over-limit", 4000, 4000},
      // A scan that ran out of data makes no band, nor do the blocks an EOB run passes over.
      {"progressive 1 GB store at 1/8", W().Soi().Dqt().Sof(0xC2, 65500, 4096, {1, 0x11, 0}).Tables().Sos({1, 0}, 0, 0, 0, zeros16).Dht(0x10, {1}, {0xE0}).Sos({1, 0}, 1, 63, 0, EobRuns(1)).Eoi().b, {}, "1", 8188, 512},
      {"3000 tiny scans", tinyScans, {}, "1"},
      {"3000 tiny scans, element limits", tinyScans, kElement, "0 kj.dinput:207 over-limit"},
      {"tables redefined between scans", Progressive().Sos({1, 0}, 0, 0, 0).Dht(0x10, {0, 1}, {0}).Dqt().Sos({1, 0}, 1, 63, 0x01, {0x00}).Dht(0x10, {1}, {0}).Sos({1, 0}, 1, 63, 0x10).Eoi().b, {}, "1"},
      {"restart interval 1, markers missing", W().Soi().Dqt().Seg(0xDD, {0, 1}).Sof(0xC0, 16, 16, {1, 0x11, 0}).Tables().Sos({1, 0}, 0, 63, 0, {0, 0}).Eoi().b, {}, "0 kj.dinput:475 CJPGD:71 corrupt"},
      {"progressive, restart interval 1, markers missing", W().Soi().Dqt().Seg(0xDD, {0, 1}).Sof(0xC2, 16, 16, {1, 0x11, 0}).Tables().Sos({1, 0}, 0, 0, 0, {0, 0}).Eoi().b, {}, "0 kj.dinput:475 corrupt"},
      {"endless fill bytes after SOI", W().Soi().Raw(Bytes(100000, 0xFF)).b, {}, "0 kj.d:106 truncated"},
      {"endless fill bytes in the data", Grey().Tables().Sos({1, 0}).Raw(Bytes(100000, 0xFF)).Eoi().b, {}, "1"},
  };
  // clang-format on
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    unsigned long requested = 0;
    EXPECT_EQ(Outcome(row.input, row.limits, row.width, row.height, &requested), row.outcome);
    EXPECT_LT(requested, 64ul << 20);
  }
}

// Every prefix of a file decodes or fails with its sites, within bounded
// memory; the memory input's synthetic EOI is never read past (ASan).
TEST(HostileInput, EveryTruncationDecodesOrFailsCleanly) {
  // Restarts every two MCUs; a progressive file refining DC and AC once.
  const Bytes baseline = W().Soi()
                             .Dqt()
                             .Seg(0xDD, {0, 2})
                             .Sof(0xC0, 16, 16, {1, 0x11, 0})
                             .Tables()
                             .Sos({1, 0}, 0, 63, 0, {0x00, 0xFF, 0xD0, 0x00})
                             .Eoi()
                             .b;
  const Bytes progressive = Progressive()
                                .Sos({1, 0}, 0, 0, 0x01)
                                .Sos({1, 0}, 1, 63, 0x01)
                                .Sos({1, 0}, 0, 0, 0x10, {0x00})
                                .Sos({1, 0}, 1, 63, 0x10, {0x00})
                                .Eoi()
                                .b;
  // A cut never reads as the library's own fault.
  const std::regex outcome("1|0( [\\w/.]+:\\d+)+ (truncated|corrupt|unsupported|bad-argument)");
  for (const Bytes& jpeg : {baseline, progressive}) {
    int decoded = 0;
    for (size_t n = 0; n <= jpeg.size(); ++n) {
      unsigned long requested = 0;
      const std::string got = Outcome(Bytes(jpeg.begin(), jpeg.begin() + n), {}, 0, 0, &requested);
      EXPECT_TRUE(std::regex_match(got, outcome)) << n << ": " << got;
      EXPECT_LT(requested, 1ul << 20) << n;
      decoded += got == "1";
    }
    // A cut inside the entropy data decodes with zero bits; the whole file does.
    EXPECT_GT(decoded, 3);
    EXPECT_EQ(Outcome(jpeg), "1");
  }
}

// Entropy-coded bytes of a bit string (spaces ignored), padded with ones,
// 0xFF stuffed.
Bytes Bits(const std::string& text) {
  std::string bits;
  for (char c : text)
    if (c != ' ') bits += c;
  bits.append((8 - bits.size() % 8) % 8, '1');
  Bytes out;
  for (size_t i = 0; i < bits.size(); i += 8) {
    out.push_back(static_cast<uint8_t>(std::stoi(bits.substr(i, 8), nullptr, 2)));
    if (out.back() == 0xFF) out.push_back(0);
  }
  return out;
}

// Corrupt progressive data can drive coefficients far beyond 16 bits: in
// three block rows, a DC first scan (57344), an AC first scan (32768) and an
// AC refinement (-32769). A table value of 65535 must not be taken as 16
// bits either. Each picture equals that of a sequential file coding the same
// dequantised coefficients, at every scale.
TEST(HostileInput, ProgressiveCoefficientsBeyond16BitsStayExact) {
  // A 16-bit table: 8192 at zigzag 0 and 2, 9 at zigzag 1, else 1; or 65535 at 1.
  auto dqt16 = [](bool big) {
    Bytes p{0x10};
    for (int k = 0; k < 64; ++k) {
      const int q = big ? (k == 1 ? 65535 : 1) : k == 0 || k == 2 ? 8192 : k == 1 ? 9 : 1;
      p.insert(p.end(), {static_cast<uint8_t>(q >> 8), static_cast<uint8_t>(q)});
    }
    return p;
  };
  // DC "0" category 3, "10" category 0, "110" category 1; progressive AC "0"
  // EOB, "10" category 15, "110" run 1 category 15.
  const W progressive = W().Soi().Dqt().Sof(0xC2, 8, 24, {1, 0x11, 0}).Dht(0x00, {1, 1, 1}, {3, 0, 1});
  const W big =
      W().Soi().Seg(0xDB, dqt16(true)).Sof(0xC2, 8, 8, {1, 0x11, 0}).Dht(0x00, {1, 1, 1}, {3, 0, 1});
  // Sequential AC "0" EOB, "10" run 1 category 3, "110" category 12, "1110" category 1.
  auto sequential = [&](bool big, int height, const char* bits) {
    return W()
        .Soi()
        .Seg(0xDB, dqt16(big))
        .Sof(0xC1, 8, height, {1, 0x11, 0})
        .Dht(0x00, {1, 1, 1}, {3, 0, 1})
        .Dht(0x10, {1, 1, 1, 1}, {0x00, 0x13, 0x0C, 0x01})
        .Sos({1, 0}, 0, 63, 0, Bits(bits))
        .Eoi()
        .b;
  };
  const std::pair<Bytes, Bytes> pairs[] = {
      {W(progressive)
           .Sos({1, 0}, 0, 0, 0x0D, Bits("0 111  0 000  10"))  // +7, -7, 0 at Al 13
           .Dht(0x10, {1, 1, 1}, {0x00, 0x0F, 0x1F})
           .Sos({1, 0}, 1, 63, 0x01, Bits("0  110 100000000000000 0  10 011111111111111 0"))
           .Dht(0x10, {1}, {0x00})
           .Sos({1, 0}, 1, 63, 0x10, Bits("0  0 0  0 1"))  // -32768 takes -1
           .Eoi()
           .b,
       sequential(false, 24, "0 111 0  0 000 10 100 0  10 110 000111000110 0")},
      {W(big)
           .Sos({1, 0}, 0, 0, 0, Bits("10"))
           .Dht(0x10, {1, 1}, {0x00, 0x01})
           .Sos({1, 0}, 1, 63, 0, Bits("10 1 0"))
           .Eoi()
           .b,
       sequential(true, 8, "10  1110 1  0")},
  };
  for (const auto& [got, want] : pairs) {
    for (int scale : {8, 4, 2, 1}) {
      SCOPED_TRACE(scale);
      EXPECT_EQ(keltest::DecodePlanes(got, scale)[0].samples, keltest::DecodePlanes(want, scale)[0].samples);
    }
  }
}

}  // namespace
