// The baseline JPEG encoder object. One encoder lives for one call of
// EncodeJPG; every buffer it uses comes from its own heap.
#ifndef KJ_E_KJ_E_H
#define KJ_E_KJ_E_H

#include <cstdint>

#include "kau/kau.h"
#include "kiu/kiu.h"
#include "kiu/mmstream.h"
#include "kj.e/kj.ekernels.h"

namespace kje {

constexpr kau::Fault kSiteFlushShortWrite{"gstreamer/gst-plugins-extension/Codec/SW/JPEG/kj.e/kj.e", 104,
                                          kau::Category::kIo,
                                          "the output stream took fewer bytes than written"};
constexpr kau::Fault kSiteNoHuffmanCode{"gstreamer/gst-plugins-extension/Codec/SW/JPEG/kj.e/kj.e", 110,
                                        kau::Category::kInternal, "a value has no Huffman code"};

// One quantised DCT coefficient (or level-shifted sample).
using Coefficient = int32_t;

// One 8x8 block of coefficients (or level-shifted samples) in natural order.
struct Block {
  Coefficient coef[64];
};

struct QuantizationTable {
  uint16_t values[64];  // natural order
  unsigned char written;
};

struct HuffmanTable {
  unsigned char bits[17];  // bits[l]: number of codes of length l; bits[0] unused
  unsigned char values[256];
  unsigned char written;
};

struct DerivedTable {
  uint32_t code[256];
  unsigned char length[256];  // 0: the symbol has no code
  uint32_t packed[256];       // code << 8 | length: one load per symbol
  // AC tables: the fast path's entry for a run of zeros, category n and sign
  // at run * 32 + 2 * (n - 1) + negative (run 0 to 15, n 1 to 10), holding
  // (code << n, plus 2^n - 1 when negative) << 5 | code length + n.
  uint32_t fast[16 * 32];
  bool complete;  // every AC symbol has a code: the fast path may be used
};

class Encoder;
using DownsampleRoutine = void (Encoder::*)(struct Component*);

struct Component {
  unsigned char** rowGroup;   // vmax row pointers (then the rows, for packed input)
  unsigned char** blockRows;  // v * 8 row pointers, then the rows
  uint32_t inputWidth;        // samples per row coming in
  uint32_t paddedWidth;       // widthInBlocks * 8
  uint32_t planeStride;       // planar input only
  unsigned char* planeRow;    // planar input only
  int id;
  int h;
  int v;
  int quantTable;
  int dcTable;
  int acTable;
  uint32_t widthInBlocks;
  uint32_t heightInBlocks;
  uint32_t mcuWidth;        // blocks, = h
  uint32_t mcuHeight;       // blocks, = v
  uint32_t mcuSampleWidth;  // h * 8
  uint32_t lastColumnBlocks;
  uint32_t lastRowBlocks;
  DownsampleRoutine downsample;
};

class Encoder {
 public:
  static constexpr uint32_t kOutputBufferSize = 4096;
  static constexpr int kMaxBlocksInMcu = 12;

  Encoder(unsigned long width, unsigned long height, int quality, kiu::Format inputFormat,
          kiu::Format outputFormat);
  ~Encoder() = default;
  Encoder(const Encoder&) = delete;
  Encoder& operator=(const Encoder&) = delete;

  // Writes the whole file for the picture at `data` to `out`.
  void Encode(unsigned char* data, MMStream* out);

  // Sampling (kj.esample).
  void Sampler_Start();
  void Sampler_FillOutRows();
  void Sampler_ConvertRGB(const unsigned char* in);
  void Sampler_PointAtPacked(const unsigned char* in);
  void Sampler_PointAtPlanes(const unsigned char* in);
  void Sampler_RowGroupDone();
  void Downsample_FullSize(Component* component);
  void Downsample_AsTheyStand(Component* component);
  void Downsample_H2V1(Component* component);
  void Downsample_H2V2(Component* component);
  void Downsample_PackedH2V2(Component* component);
  void Downsample_ByLuma(Component* component);

  // Forward DCT and quantisation (kj.efdct).
  void Fdct_Start(int quality);
  void Fdct_AddQuantizationTable(int number, const unsigned long* base, int scale);
  void Fdct_DoBlocks(Component* component, unsigned char** rows, Block* out, unsigned long firstRow,
                     unsigned long firstColumn, unsigned long count);
  bool Fdct_CanPair(const Component& a, const Component& b) const;
  void Fdct_DoPair(Component* a, Component* b, Block* out, unsigned long firstColumn);
  void Fdct_DoFast0(int* block);
  void Fdct_DoSlow0(int* block);

  // Entropy coding (kj.ehuff).
  void Huff_AddTable(HuffmanTable*& table, const unsigned char* bits, const unsigned char* values);
  void Huff_MakeDerivedTable(bool isDC, int number, DerivedTable*& derived);
  void Huff_StartPass();
  void Huff_EncodeMcu(Block** blocks);
  void EncodeOneBlock(int* block, int lastDC, DerivedTable* dc, DerivedTable* ac);
  void Huff_FinishPass();
  // The bit writer's state, copied into locals while an MCU is coded.
  struct HuffWriter {
    uint64_t bits;  // pending bits in the low 64 - `free` bits (above: stale)
    int free;       // 1 to 64 between symbols
    unsigned char* next;
  };
  void Huff_EncodeBlock(HuffWriter& w, const Coefficient* block, int lastDC, const DerivedTable* dc,
                        const DerivedTable* ac, uint64_t (*acMask)(const int32_t*));
  unsigned char* Huff_StoreWordSlow(unsigned char* next, uint64_t word);

  // Marker writer (kj.emarkers).
  void Markers_OutImageHeader();
  void Markers_OutImageTrailer();
  void EmitMarker(int code);
  void EmitInt16(int value);
  void EmitJfifApp0();
  void EmitAdobeApp14();
  int EmitDQT(int number);  // returns the precision used: 0 (8-bit) or 1 (16-bit)
  void EmitSOF(int code);
  void EmitDHT(int number, bool isAC);
  void EmitSOS();

  // Stores one byte in the output buffer, passing the buffer on when full.
  void EmitByte(unsigned char byte) {
    *outNext_++ = byte;
    if (outNext_ == outEnd_) FlushOutput();
  }
  void FlushOutput() {
    if (MMStreamPut(stream_, outBuffer_, kOutputBufferSize) != kOutputBufferSize)
      kau::Throw(kSiteFlushShortWrite);
    outNext_ = outBuffer_;
  }
  kau::mem::Heap heap_;

  unsigned char* outBuffer_ = nullptr;
  unsigned char* outNext_ = nullptr;
  unsigned char* outEnd_ = nullptr;
  MMStream* stream_ = nullptr;

  uint32_t width_ = 0;
  uint32_t height_ = 0;
  uint32_t paddedWidth_ = 0;
  uint32_t paddedHeight_ = 0;
  kiu::Format inputFormat_;
  kiu::Format outputFormat_;
  void (Encoder::*fdct_)(int*) = nullptr;  // names the transform; blocks go through fdctBlocks_
  int hmax_ = 1;
  int vmax_ = 1;

  int mcuBlockComponent_[kMaxBlocksInMcu] = {};
  int blocksInMcu_ = 0;

  void (Encoder::*convert_)(const unsigned char*) = nullptr;
  void (Encoder::*rowGroupRoutine_)() = nullptr;
  const unsigned char* input_ = nullptr;
  uint32_t inputRowBytes_ = 0;
  uint32_t rowsRead_ = 0;
  int rowsInGroup_ = 0;
  int groupsDone_ = 0;

  uint32_t mcuRow_ = 0;
  uint32_t mcuColumn_ = 0;
  uint32_t lastMcuRow_ = 0;
  uint32_t lastMcuColumn_ = 0;

  bool writeJfif_ = false;
  bool writeAdobe_ = false;

  Component components_[3] = {};
  Component* componentsEnd_ = components_;
  Block* mcuBlocks_ = nullptr;  // kMaxBlocksInMcu blocks

  // Quantisation.
  QuantizationTable* quantTables_[4] = {};
  int32_t* divisors_[4] = {};
  FdctBlocksRoutine* fdctBlocks_ = nullptr;  // the transform in use, with quantisation
  bool fdctPairs_ = false;                   // see Kernels::fdctPairs

  // Entropy coding.
  HuffmanTable* dcTables_[4] = {};
  HuffmanTable* acTables_[4] = {};
  DerivedTable* dcDerived_[4] = {};
  DerivedTable* acDerived_[4] = {};
  int lastDc_[3] = {};
  uint64_t bitBuffer_ = 0;  // see HuffWriter
  int bitsFree_ = 64;
};

}  // namespace kje

#endif  // KJ_E_KJ_E_H
