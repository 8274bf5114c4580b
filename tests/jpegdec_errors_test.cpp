// Every error of the decoder object, the marker reader and the Huffman
// entropy decoder is produced by some input, with the right source name and
// line. Inputs come from a minimal JPEG writer; the few errors no file can
// reach (an earlier check always fires first) are reached by setting the
// decoder's plain fields.
#include <gtest/gtest.h>

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

struct Row {
  const char* name;
  std::string file;  // under kj.d/ unless it has a '/'
  int line;
  Bytes input;
  std::function<void(kjd::Decoder&)> poke = nullptr;  // after construction
  bool outer = false;                                 // the error the caller sees
};

TEST(DecoderErrors, EveryErrorHasAnInputThatReachesItsLine) {
  const std::vector<int> four = {1, 0x44, 0, 2, 0x11, 0, 3, 0x11, 0, 4, 0x11, 0};
  // clang-format off
  const Row rows[] = {
      {"three bytes", "kj.d", 45, {0xFF, 0xD8, 0xFF}},
      {"leading 00", "kj.d", 57, {0x00, 0xD8, 0xFF, 0xD9}},
      {"starts with EOI", "kj.d", 60, {0xFF, 0xD9, 0xFF, 0xD9}},
      {"constructor failure seen by the caller", "kj.d", 70, W().Soi().Soi().Eoi().b, nullptr, true},
      {"second SOI", "kj.dinput", 124, W().Soi().Soi().Eoi().b},
      {"second SOF", "kj.dinput", 138, Grey().Sof(0xC0, 8, 8, {1, 0x11, 0}).Eoi().b},
      {"precision 12", "kj.dinput", 142, W().Soi().Sof(0xC1, 8, 8, {1, 0x11, 0}, 12).Eoi().b},
      {"width 65501", "kj.dinput", 147, W().Soi().Sof(0xC0, 65501, 8, {1, 0x11, 0}).Eoi().b},
      {"five components", "kj.dinput", 149, W().Soi().Sof(0xC0, 8, 8, {1, 17, 0, 2, 17, 0, 3, 17, 0, 4, 17, 0, 5, 17, 0}).Eoi().b},
      {"width 0", "kj.dinput", 153, W().Soi().Sof(0xC0, 0, 8, {1, 0x11, 0}).Eoi().b},
      {"SOF length", "kj.dinput", 154, W().Soi().Sof(0xC0, 8, 8, {1, 0x11, 0}, 8, 1).Raw({0}).Eoi().b},
      {"SOS before SOF", "kj.dinput", 176, W().Soi().Dqt().Tables().Sos({1, 0}).Eoi().b},
      {"SOS with no component", "kj.dinput", 179, Grey().Tables().Sos({}).Eoi().b},
      {"SOS names an unknown component", "kj.dinput", 189, Grey().Tables().Sos({9, 0}).Eoi().b},
      {"second scan in a single-scan image", "kj.dinput", 206, Grey().Tables().Sos({1, 0}).Sos({1, 0}).Eoi().b},
      {"sampling 5", "kj.dinput", 217, W().Soi().Dqt().Sof(0xC0, 8, 8, {1, 0x51, 0}).Tables().Sos({1, 0}).Eoi().b},
      {"DHT counts beyond the segment", "kj.dinput", 252, W().Soi().Dht(0x00, {2}, {0}).Eoi().b},
      {"DHT AC slot 4", "kj.dinput", 266, W().Soi().Dht(0x14, {1}, {0}).Eoi().b},
      {"DHT slot 32", "kj.dinput", 266, W().Soi().Dht(0x20, {1}, {0}).Eoi().b},
      {"DHT length mismatch", "kj.dinput", 272, W().Soi().Dht(0x00, {1}, {0, 1, 2, 3}).Eoi().b},
      {"DQT slot 4", "kj.dinput", 284, W().Soi().Dqt(4).Eoi().b},
      {"DQT one byte short", "kj.dinput", 297, W().Soi().Dqt(0, -1).Eoi().b},
      {"DRI length 5", "kj.dinput", 303, W().Soi().Seg(0xDD, {0, 1, 0}).Eoi().b},
      {"JFIF version 2", "kj.dinput", 340, W().Soi().Seg(0xE0, {'J', 'F', 'I', 'F', 0, 2, 1, 0, 0, 1, 0, 1, 0, 0}).Eoi().b},
      {"restart out of sequence", "kj.dinput", 475, W().Soi().Dqt().Seg(0xDD, {0, 1}).Sof(0xC0, 16, 8, {1, 0x11, 0}).Tables().Sos({1, 0}, 0, 63, 0, {0x00, 0xFF, 0xD1, 0x00}).Eoi().b},
      {"5 components in scan", "kj.dinput", 502, GreyBaseline(), [](kjd::Decoder& d) { d.componentsInScan = 5; d.Input_StartScan(); }},
      {"19 blocks per MCU", "kj.dinput", 518, W().Soi().Dqt().Sof(0xC0, 32, 32, four).Tables().Sos({1, 0, 2, 0, 3, 0, 4, 0}).Eoi().b},
      {"quantisation table undefined", "kj.dinput", 530, W().Soi().Dqt().Sof(0xC0, 8, 8, {1, 0x11, 3}).Tables().Sos({1, 0}).Eoi().b},
      {"SOF3", "kj.dinput", 601, W().Soi().Sof(0xC3, 8, 8, {1, 0x11, 0}).Eoi().b},
      {"EOI without scan", "kj.dinput", 609, Grey().Tables().Eoi().b},
      {"DHP marker", "kj.dinput", 657, W().Soi().Seg(0xDE, {0, 0}).Eoi().b},
      {"ceil-div by zero", "common/kau/kau", 144, GreyBaseline(), [](kjd::Decoder& d) { d.maxH = 0; d.componentsInScan = 2; d.scanComponents[1] = d.components; d.Input_StartScan(); }},
      {"no code near a marker", "kj.dhuff", 94, Grey().Dht(0x00, {}, {}).Dht(0x10, {1}, {0}).Sos({1, 0}, 0, 63, 0, {}).Eoi().b},
      {"no code, long", "kj.dhuff", 111, Grey().Dht(0x00, {}, {}).Dht(0x10, {1}, {0}).Sos({1, 0}, 0, 63, 0, {0, 0, 0}).Eoi().b},
      {"table number 4", "kj.dhuff", 211, Grey().Tables().Sos({1, 0x40}).Eoi().b},
      {"table not defined", "kj.dhuff", 213, Grey().Tables().Sos({1, 0x10}).Eoi().b},
      // GetDHT refuses such a table (kj.dinput 252), so the record is edited.
      {"more than 256 codes", "kj.dhuff", 224, GreyBaseline(), [](kjd::Decoder& d) { d.dcHuffTables[0][8] = 255; d.dcHuffTables[0][9] = 2; }},
      {"code space overfilled", "kj.dhuff", 239, Grey().Dht(0x00, {0, 5}, {0, 1, 2, 3, 4}).Dht(0x10, {1}, {0}).Sos({1, 0}).Eoi().b},
      {"DC symbol 16", "kj.dhuff", 288, Grey().Dht(0x00, {1}, {16}).Dht(0x10, {1}, {0}).Sos({1, 0}).Eoi().b},
      {"progressive DC with Se 1", "kj.dhuff", 423, Progressive().Sos({1, 0}, 0, 1, 0).Eoi().b},
      {"progressive Ss above Se", "kj.dhuff", 428, Progressive().Sos({1, 0}, 0, 0, 0).Sos({1, 0}, 5, 2, 0).Eoi().b},
      {"progressive Al 14", "kj.dhuff", 431, Progressive().Sos({1, 0}, 0, 0, 0x0E).Eoi().b},
      {"progressive AC before DC", "kj.dhuff", 439, Progressive().Sos({1, 0}, 1, 63, 0).Eoi().b},
      {"progressive Ah mismatch", "kj.dhuff", 443, Progressive().Sos({1, 0}, 0, 0, 0).Sos({1, 0}, 1, 63, 0x10).Eoi().b},
      {"refinement symbol of category 2", "kj.dhuff", 600, Progressive().Sos({1, 0}, 0, 0, 0).Sos({1, 0}, 1, 63, 0x01).Sos({1, 0}, 1, 63, 0x10, {0x80}).Eoi().b},
      // The inputs the table is built from decode cleanly; 18 blocks per MCU
      // (4x4, 1x1, 1x1) are accepted, and AC slot 3 is 0x13.
      {"good baseline", "", 0, GreyBaseline()},
      {"good refinement", "", 0, Progressive().Sos({1, 0}, 0, 0, 0).Sos({1, 0}, 1, 63, 0x01).Sos({1, 0}, 1, 63, 0x10).Eoi().b},
      {"good 18 blocks", "", 0, W().Soi().Dqt().Sof(0xC0, 32, 32, {1, 0x44, 0, 2, 0x11, 0, 3, 0x11, 0}).Dht(0x00, {1}, {0}).Dht(0x13, {1}, {0}).Sos({1, 3, 2, 3, 3, 3}, 0, 63, 0, Bytes(5, 0)).Eoi().b},
  };
  // clang-format on
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    const std::string file =
        row.file.empty() || row.file.find('/') != std::string::npos ? row.file : keltest::kDecDir + row.file;
    const keltest::ErrorSite site = keltest::DecodeError(row.input, row.poke);
    if (row.outer) {
      EXPECT_EQ(site.outer, file + ":" + std::to_string(row.line));
    } else {
      EXPECT_EQ(site.file + ":" + std::to_string(site.line), file + ":" + std::to_string(row.line));
    }
  }
}

}  // namespace
