
#include "kj.e/kj.e.h"

namespace kje {

namespace {
constexpr const char* kSource = "gstreamer/gst-plugins-extension/Codec/SW/JPEG/kj.e/kj.emarkers";
constexpr kau::Fault kSiteMissingQuantTable{kSource, 91, kau::Category::kInternal,
                                            "a quantisation table is not defined"};
constexpr kau::Fault kSiteMissingHuffTable{kSource, 125, kau::Category::kInternal,
                                           "a Huffman table is not defined"};
constexpr kau::Fault kSiteTooLarge{kSource, 155, kau::Category::kOverLimit,
                                   "the padded picture is above 65535 pixels"};
constexpr kau::Fault kSiteFinalShortWrite{kSource, 401, kau::Category::kIo,
                                          "the output stream took fewer bytes than written"};
}  // namespace

void Encoder::EmitMarker(int code) {
  EmitByte(0xFF);
  EmitByte(static_cast<unsigned char>(code));
}

void Encoder::EmitInt16(int value) {
  EmitByte(static_cast<unsigned char>((value >> 8) & 0xFF));
  EmitByte(static_cast<unsigned char>(value & 0xFF));
}

void Encoder::EmitJfifApp0() {
  static const unsigned char kSegment[] = {'J', 'F', 'I', 'F', 0, 1, 1, 0, 0, 1, 0, 1, 0, 0};
  EmitMarker(kj::kAPP0);
  EmitInt16(2 + sizeof(kSegment));
  for (unsigned char b : kSegment) EmitByte(b);
}

void Encoder::EmitAdobeApp14() {
  static const unsigned char kIdentifier[] = {'A', 'd', 'o', 'b', 'e'};
  EmitMarker(kj::kAPP14);
  EmitInt16(14);
  for (unsigned char b : kIdentifier) EmitByte(b);
  EmitInt16(100);  // version
  EmitInt16(0);    // flags 0
  EmitInt16(0);    // flags 1
  EmitByte(outputFormat_ >= 1 && outputFormat_ <= 6 ? 1 : 0);
}

int Encoder::EmitDQT(int number) {
  if (number < 0 || number > 3 || quantTables_[number] == nullptr) kau::Throw(kSiteMissingQuantTable);
  QuantizationTable* table = quantTables_[number];
  int precision = 0;
  for (int i = 0; i < 64; ++i) {
    if (table->values[i] > 255) precision = 1;
  }
  if (table->written) return precision;
  EmitMarker(kj::kDQT);
  EmitInt16(precision ? 131 : 67);
  EmitByte(static_cast<unsigned char>(precision * 16 + number));
  for (int k = 0; k < 64; ++k) {
    unsigned value = table->values[kNaturalOrder[k]];
    if (precision) EmitByte(static_cast<unsigned char>(value >> 8));
    EmitByte(static_cast<unsigned char>(value & 0xFF));
  }
  table->written = 1;
  return precision;
}

void Encoder::EmitSOF(int code) {
  if (paddedWidth_ >= 65536 || paddedHeight_ >= 65536) kau::Throw(kSiteTooLarge);
  EmitMarker(code);
  EmitInt16(17);
  EmitByte(8);
  // The size as given: padding for planar input stays inside the MCUs.
  EmitInt16(static_cast<int>(height_));
  EmitInt16(static_cast<int>(width_));
  EmitByte(3);
  for (Component* c = components_; c != componentsEnd_; ++c) {
    EmitByte(static_cast<unsigned char>(c->id));
    EmitByte(static_cast<unsigned char>(c->h * 16 + c->v));
    EmitByte(static_cast<unsigned char>(c->quantTable));
  }
}

void Encoder::EmitDHT(int number, bool isAC) {
  HuffmanTable* table = (number < 0 || number > 3) ? nullptr : isAC ? acTables_[number] : dcTables_[number];
  if (table == nullptr) kau::Throw(kSiteMissingHuffTable);
  if (table->written) return;
  int count = 0;
  for (int l = 1; l <= 16; ++l) count += table->bits[l];
  EmitMarker(kj::kDHT);
  EmitInt16(19 + count);
  EmitByte(static_cast<unsigned char>(isAC ? 16 + number : number));
  for (int l = 1; l <= 16; ++l) EmitByte(table->bits[l]);
  for (int i = 0; i < count; ++i) EmitByte(table->values[i]);
  table->written = 1;
}

void Encoder::EmitSOS() {
  EmitMarker(kj::kSOS);
  EmitInt16(12);
  EmitByte(3);
  for (Component* c = components_; c != componentsEnd_; ++c) {
    EmitByte(static_cast<unsigned char>(c->id));
    EmitByte(static_cast<unsigned char>(c->dcTable * 16 + c->acTable));
  }
  EmitByte(0);   // spectral start
  EmitByte(63);  // spectral end
  EmitByte(0);   // successive approximation
}

void Encoder::Markers_OutImageHeader() {
  EmitMarker(kj::kSOI);
  if (writeJfif_) EmitJfifApp0();
  if (writeAdobe_) EmitAdobeApp14();
  int extended = 0;
  for (Component* c = components_; c != componentsEnd_; ++c) extended += EmitDQT(c->quantTable);
  for (Component* c = components_; c != componentsEnd_; ++c) {
    if (c->dcTable > 1 || c->acTable > 1) extended = 1;
  }
  EmitSOF(extended ? kj::kSOF1 : kj::kSOF0);
  for (Component* c = components_; c != componentsEnd_; ++c) {
    EmitDHT(c->dcTable, false);
    EmitDHT(c->acTable, true);
  }
  EmitSOS();
}

void Encoder::Markers_OutImageTrailer() {
  EmitMarker(kj::kEOI);
  uint32_t count = static_cast<uint32_t>(outNext_ - outBuffer_);
  if (count != 0 && MMStreamPut(stream_, outBuffer_, count) != count) kau::Throw(kSiteFinalShortWrite);
  outNext_ = outBuffer_;
}

}  // namespace kje
