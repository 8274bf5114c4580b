// Every error of the decoder object, the marker reader and the Huffman
// entropy decoder is produced by some input, with
// the right source name and line. Inputs are built by a minimal JPEG writer
// or by small mutations; the few errors that no file can reach (an earlier
// check always fires first) are reached by setting the decoder's plain fields.
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "kj.d/kj.d.h"
#include "support/testutil.h"

namespace {

using keltest::Bytes;

const std::string kDir = "gstreamer/gst-plugins-extension/Codec/SW/JPEG/kj.d/";

// ---- A minimal JPEG writer ----
struct Writer {
  Bytes b;
  Writer& Raw(std::initializer_list<int> bytes) {
    for (int v : bytes) b.push_back(static_cast<uint8_t>(v));
    return *this;
  }
  Writer& Raw(const Bytes& bytes) {
    b.insert(b.end(), bytes.begin(), bytes.end());
    return *this;
  }
  Writer& Marker(int m) { return Raw({0xFF, m}); }
  Writer& Segment(int marker, const Bytes& payload, int lengthAdjust = 0) {
    Marker(marker);
    int length = static_cast<int>(payload.size()) + 2 + lengthAdjust;
    Raw({length >> 8, length & 255});
    return Raw(payload);
  }
  Writer& Soi() { return Marker(0xD8); }
  Writer& Eoi() { return Marker(0xD9); }
  Writer& Dqt(int slot = 0, int lengthAdjust = 0) {
    Bytes p{static_cast<uint8_t>(slot)};
    p.insert(p.end(), 64, 1);
    return Segment(0xDB, p, lengthAdjust);
  }
  struct Comp {
    int id, hv, tq;
  };
  Writer& Sof(int type, int w, int h, std::vector<Comp> comps, int precision = 8, int lengthAdjust = 0,
              int nfOverride = -1) {
    Bytes p{static_cast<uint8_t>(precision),
            static_cast<uint8_t>(h >> 8),
            static_cast<uint8_t>(h),
            static_cast<uint8_t>(w >> 8),
            static_cast<uint8_t>(w),
            static_cast<uint8_t>(nfOverride >= 0 ? nfOverride : static_cast<int>(comps.size()))};
    for (const Comp& c : comps) {
      p.push_back(static_cast<uint8_t>(c.id));
      p.push_back(static_cast<uint8_t>(c.hv));
      p.push_back(static_cast<uint8_t>(c.tq));
    }
    return Segment(type, p, lengthAdjust);
  }
  // counts: L1.. (missing lengths are 0).
  Writer& Dht(int classSlot, std::vector<int> counts, std::vector<int> symbols, int lengthAdjust = 0,
              Bytes extra = {}) {
    Bytes p{static_cast<uint8_t>(classSlot)};
    counts.resize(16, 0);
    for (int c : counts) p.push_back(static_cast<uint8_t>(c));
    for (int s : symbols) p.push_back(static_cast<uint8_t>(s));
    p.insert(p.end(), extra.begin(), extra.end());
    return Segment(0xC4, p, lengthAdjust);
  }
  // The usual one-code tables: DC "0" = category 0, AC "0" = EOB.
  Writer& Tables() { return Dht(0x00, {1}, {0}).Dht(0x10, {1}, {0}); }
  Writer& Sos(std::vector<std::pair<int, int>> comps, int ss, int se, int ahal, Bytes data = {0x00},
              int lengthAdjust = 0) {
    Bytes p{static_cast<uint8_t>(comps.size())};
    for (auto& c : comps) {
      p.push_back(static_cast<uint8_t>(c.first));
      p.push_back(static_cast<uint8_t>(c.second));
    }
    p.push_back(static_cast<uint8_t>(ss));
    p.push_back(static_cast<uint8_t>(se));
    p.push_back(static_cast<uint8_t>(ahal));
    Segment(0xDA, p, lengthAdjust);
    return Raw(data);
  }
};

Writer GreyHeader(int type = 0xC0, int w = 8, int h = 8) {
  Writer w8;
  w8.Soi().Dqt().Sof(type, w, h, {{1, 0x11, 0}});
  return w8;
}

Bytes GreyBaseline() { return GreyHeader().Tables().Sos({{1, 0x00}}, 0, 63, 0).Eoi().b; }

// A progressive grey 8x8 with a DC table "0" -> 0 and an AC table "0" -> EOB,
// "10" -> 0x02 (a bad refinement symbol).
Writer ProgressiveHeader() {
  Writer w = GreyHeader(0xC2);
  w.Dht(0x00, {1}, {0}).Dht(0x10, {1, 1}, {0x00, 0x02});
  return w;
}

struct Row {
  std::string name;
  std::string file;  // relative to kj.d/ unless it contains '/'
  int line;
  std::function<Bytes()> input;
  std::function<void(kjd::Decoder&)> poke;  // optional, after construction
  bool outer = false;                       // compare the error the caller sees
};

struct Result {
  std::string file;
  int line = 0;
  std::string outer;
};

Result RunRow(const Row& row) {
  Result r;
  Bytes input = row.input();
  testing::internal::CaptureStdout();
  std::unique_ptr<kjd::Decoder> decoder;
  try {
    decoder.reset(new kjd::Decoder(input.data(), input.size(), 255));
  } catch (const kau::Error& e) {
    r.outer = std::string(e.FileName()) + ":" + std::to_string(e.Position());
    std::string printed = testing::internal::GetCapturedStdout();
    size_t at = printed.find("?!exception@ ");
    size_t plus = printed.find(" +", at);
    size_t end = printed.find(" !?", plus);
    if (at == std::string::npos || plus == std::string::npos || end == std::string::npos) {
      r.file = "unparsed: " + printed;
      return r;
    }
    r.file = printed.substr(at + 13, plus - at - 13);
    r.line = std::stoi(printed.substr(plus + 2, end - plus - 2));
    return r;
  }
  try {
    if (row.poke) row.poke(*decoder);
    kjd::Decoder::Plane planes[4] = {};
    decoder->Dcoef_DecodeToPlanes(8, planes);
  } catch (const kau::Error& e) {
    r.file = e.FileName();
    r.line = e.Position();
    r.outer = r.file + ":" + std::to_string(r.line);
  }
  testing::internal::GetCapturedStdout();
  return r;
}

std::vector<Row> Rows() {
  std::vector<Row> rows;
  auto add = [&rows](std::string name, std::string file, int line, std::function<Bytes()> input,
                     std::function<void(kjd::Decoder&)> poke = nullptr, bool outer = false) {
    rows.push_back({std::move(name), std::move(file), line, std::move(input), std::move(poke), outer});
  };
  // ---- constructor ----
  add("three_bytes", "kj.d", 45, [] { return Bytes{0xFF, 0xD8, 0xFF}; });
  add("leading_00", "kj.d", 57, [] { return Bytes{0x00, 0xD8, 0xFF, 0xD9}; });
  add("starts_with_eoi", "kj.d", 60, [] { return Bytes{0xFF, 0xD9, 0xFF, 0xD9}; });
  add(
      "constructor_failure_seen_by_caller", "kj.d", 70, [] { return Writer().Soi().Soi().Eoi().b; }, nullptr,
      true);
  // ---- marker reader ----
  add("second_soi", "kj.dinput", 124, [] { return Writer().Soi().Soi().Eoi().b; });
  add("second_sof", "kj.dinput", 138, [] { return GreyHeader().Sof(0xC0, 8, 8, {{1, 0x11, 0}}).Eoi().b; });
  add("precision_12", "kj.dinput", 142, [] {
    return Writer().Soi().Sof(0xC1, 8, 8, {{1, 0x11, 0}}, 12).Eoi().b;
  });
  add("width_65501", "kj.dinput", 147, [] {
    return Writer().Soi().Sof(0xC0, 65501, 8, {{1, 0x11, 0}}).Eoi().b;
  });
  add("five_components", "kj.dinput", 149, [] {
    return Writer()
        .Soi()
        .Sof(0xC0, 8, 8, {{1, 0x11, 0}, {2, 0x11, 0}, {3, 0x11, 0}, {4, 0x11, 0}, {5, 0x11, 0}})
        .Eoi()
        .b;
  });
  add("width_0", "kj.dinput", 153, [] { return Writer().Soi().Sof(0xC0, 0, 8, {{1, 0x11, 0}}).Eoi().b; });
  add("sof_length", "kj.dinput", 154, [] {
    return Writer().Soi().Sof(0xC0, 8, 8, {{1, 0x11, 0}}, 8, 1).Raw({0}).Eoi().b;
  });
  add("sos_before_sof", "kj.dinput", 176, [] {
    return Writer().Soi().Dqt().Tables().Sos({{1, 0x00}}, 0, 63, 0).Eoi().b;
  });
  add("sos_ns_0", "kj.dinput", 179, [] { return GreyHeader().Tables().Sos({}, 0, 63, 0).Eoi().b; });
  add("sos_unknown_component", "kj.dinput", 189, [] {
    return GreyHeader().Tables().Sos({{9, 0x00}}, 0, 63, 0).Eoi().b;
  });
  add("second_scan_in_single_scan_image", "kj.dinput", 206, [] {
    return GreyHeader().Tables().Sos({{1, 0x00}}, 0, 63, 0).Sos({{1, 0x00}}, 0, 63, 0).Eoi().b;
  });
  add("sampling_5", "kj.dinput", 217, [] {
    return Writer().Soi().Dqt().Sof(0xC0, 8, 8, {{1, 0x51, 0}}).Tables().Sos({{1, 0x00}}, 0, 63, 0).Eoi().b;
  });
  add("dht_count_beyond_segment", "kj.dinput", 252,
      [] { return Writer().Soi().Dht(0x00, {2}, {0}).Eoi().b; });
  add("dht_ac_slot_4", "kj.dinput", 266, [] { return Writer().Soi().Dht(0x14, {1}, {0}).Eoi().b; });
  add("dht_slot_32", "kj.dinput", 266, [] { return Writer().Soi().Dht(0x20, {1}, {0}).Eoi().b; });
  add("dht_length_mismatch", "kj.dinput", 272, [] {
    return Writer().Soi().Dht(0x00, {1}, {0}, 0, Bytes{1, 2, 3}).Eoi().b;
  });
  add("dqt_slot_4", "kj.dinput", 284, [] { return Writer().Soi().Dqt(4).Eoi().b; });
  add("dqt_one_byte_short", "kj.dinput", 297, [] { return Writer().Soi().Dqt(0, -1).Eoi().b; });
  add("dri_length_5", "kj.dinput", 303, [] { return Writer().Soi().Segment(0xDD, Bytes{0, 1, 0}).Eoi().b; });
  add("jfif_version_2", "kj.dinput", 340, [] {
    return Writer().Soi().Segment(0xE0, Bytes{'J', 'F', 'I', 'F', 0, 2, 1, 0, 0, 1, 0, 1, 0, 0}).Eoi().b;
  });
  add("restart_out_of_sequence", "kj.dinput", 475, [] {
    Writer w;
    w.Soi().Dqt().Segment(0xDD, Bytes{0, 1}).Sof(0xC0, 16, 8, {{1, 0x11, 0}}).Tables();
    return w.Sos({{1, 0x00}}, 0, 63, 0, Bytes{0x00, 0xFF, 0xD1, 0x00}).Eoi().b;
  });
  add(
      "components_in_scan_5", "kj.dinput", 502, [] { return GreyBaseline(); },
      [](kjd::Decoder& d) {
        d.componentsInScan = 5;
        d.Input_StartScan();
      });
  add("mcu_19_blocks", "kj.dinput", 518, [] {
    Writer w;
    w.Soi().Dqt().Sof(0xC0, 32, 32, {{1, 0x44, 0}, {2, 0x11, 0}, {3, 0x11, 0}, {4, 0x11, 0}}).Tables();
    return w.Sos({{1, 0}, {2, 0}, {3, 0}, {4, 0}}, 0, 63, 0).Eoi().b;
  });
  add("quant_table_undefined", "kj.dinput", 530, [] {
    return Writer().Soi().Dqt().Sof(0xC0, 8, 8, {{1, 0x11, 3}}).Tables().Sos({{1, 0x00}}, 0, 63, 0).Eoi().b;
  });
  add("sof3", "kj.dinput", 601, [] { return Writer().Soi().Sof(0xC3, 8, 8, {{1, 0x11, 0}}).Eoi().b; });
  add("eoi_without_scan", "kj.dinput", 609, [] { return GreyHeader().Tables().Eoi().b; });
  add("dhp_marker", "kj.dinput", 657, [] { return Writer().Soi().Segment(0xDE, Bytes{0, 0}).Eoi().b; });
  add(
      "ceil_div_zero_divisor", "common/kau/kau", 144, [] { return GreyBaseline(); },
      [](kjd::Decoder& d) {
        d.maxH = 0;
        d.componentsInScan = 2;
        d.scanComponents[1] = d.components;
        d.Input_StartScan();
      });
  // ---- entropy decoding ----
  add("no_code_near_marker", "kj.dhuff", 94, [] {
    return GreyHeader().Dht(0x00, {}, {}).Dht(0x10, {1}, {0}).Sos({{1, 0x00}}, 0, 63, 0, Bytes{}).Eoi().b;
  });
  add("no_code_long", "kj.dhuff", 111, [] {
    return GreyHeader()
        .Dht(0x00, {}, {})
        .Dht(0x10, {1}, {0})
        .Sos({{1, 0x00}}, 0, 63, 0, Bytes{0, 0, 0})
        .Eoi()
        .b;
  });
  add("table_number_4", "kj.dhuff", 211, [] {
    return GreyHeader().Tables().Sos({{1, 0x40}}, 0, 63, 0).Eoi().b;
  });
  add("table_not_defined", "kj.dhuff", 213, [] {
    return GreyHeader().Tables().Sos({{1, 0x10}}, 0, 63, 0).Eoi().b;
  });
  add(
      "more_than_256_codes", "kj.dhuff", 224, [] { return GreyBaseline(); },
      [](kjd::Decoder& d) {
        // GetDHT refuses such a table (kj.dinput 252), so the record is edited.
        d.dcHuffTables[0][8] = 255;
        d.dcHuffTables[0][9] = 2;
      });
  add("code_space_overfilled", "kj.dhuff", 239, [] {
    return GreyHeader()
        .Dht(0x00, {0, 5}, {0, 1, 2, 3, 4})
        .Dht(0x10, {1}, {0})
        .Sos({{1, 0x00}}, 0, 63, 0)
        .Eoi()
        .b;
  });
  add("dc_symbol_16", "kj.dhuff", 288, [] {
    return GreyHeader().Dht(0x00, {1}, {16}).Dht(0x10, {1}, {0}).Sos({{1, 0x00}}, 0, 63, 0).Eoi().b;
  });
  add("progressive_dc_se_1", "kj.dhuff", 423, [] {
    return ProgressiveHeader().Sos({{1, 0x00}}, 0, 1, 0x00).Eoi().b;
  });
  add("progressive_ss_above_se", "kj.dhuff", 428, [] {
    return ProgressiveHeader().Sos({{1, 0x00}}, 0, 0, 0x00).Sos({{1, 0x00}}, 5, 2, 0x00).Eoi().b;
  });
  add("progressive_al_14", "kj.dhuff", 431, [] {
    return ProgressiveHeader().Sos({{1, 0x00}}, 0, 0, 0x0E).Eoi().b;
  });
  add("progressive_ac_before_dc", "kj.dhuff", 439, [] {
    return ProgressiveHeader().Sos({{1, 0x00}}, 1, 63, 0x00).Eoi().b;
  });
  add("progressive_ah_mismatch", "kj.dhuff", 443, [] {
    return ProgressiveHeader().Sos({{1, 0x00}}, 0, 0, 0x00).Sos({{1, 0x00}}, 1, 63, 0x10).Eoi().b;
  });
  add("refinement_symbol_category_2", "kj.dhuff", 600, [] {
    return ProgressiveHeader()
        .Sos({{1, 0x00}}, 0, 0, 0x00, Bytes{0x00})
        .Sos({{1, 0x00}}, 1, 63, 0x01, Bytes{0x00})
        .Sos({{1, 0x00}}, 1, 63, 0x10, Bytes{0x80})
        .Eoi()
        .b;
  });
  return rows;
}

TEST(DecoderErrors, EveryTableEntry) {
  for (const Row& row : Rows()) {
    SCOPED_TRACE(row.name);
    const std::string file = row.file.find('/') != std::string::npos ? row.file : kDir + row.file;
    Result r = RunRow(row);
    if (row.outer) {
      EXPECT_EQ(r.outer, file + ":" + std::to_string(row.line));
    } else {
      EXPECT_EQ(r.file, file);
      EXPECT_EQ(r.line, row.line);
    }
  }
}

// The inputs the table is built from decode cleanly before they are broken.
TEST(DecoderErrors, BaseInputsDecode) {
  for (const Bytes& good : {GreyBaseline(),
                            ProgressiveHeader()
                                .Sos({{1, 0x00}}, 0, 0, 0x00, Bytes{0x00})
                                .Sos({{1, 0x00}}, 1, 63, 0x01, Bytes{0x00})
                                .Sos({{1, 0x00}}, 1, 63, 0x10, Bytes{0x00})
                                .Eoi()
                                .b,
                            // 18 blocks per MCU (4x4, 1x1, 1x1) is accepted; AC slot 3 is 0x13.
                            Writer()
                                .Soi()
                                .Dqt()
                                .Sof(0xC0, 32, 32, {{1, 0x44, 0}, {2, 0x11, 0}, {3, 0x11, 0}})
                                .Dht(0x00, {1}, {0})
                                .Dht(0x13, {1}, {0})
                                .Sos({{1, 0x03}, {2, 0x03}, {3, 0x03}}, 0, 63, 0, Bytes(5, 0))
                                .Eoi()
                                .b}) {
    Row row{"good", "", 0, [good] { return good; }, nullptr, false};
    SCOPED_TRACE(good.size());
    Result r = RunRow(row);
    EXPECT_EQ(r.file, "");
  }
}

}  // namespace
