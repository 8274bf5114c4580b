// The JPEG decoder object: its state, the input byte reader, the marker
// reader, the entropy decoders, the coefficient controllers, the inverse DCT,
// the upsampler and pixel output, and the decode driver. The upsampler reads
// what a DecompressFn writes: one iMCU row of component samples.
#ifndef KJ_D_KJ_D_H
#define KJ_D_KJ_D_H

#include <cstdint>

#include "kau/kau.h"
#include "kj.dlimits.h"
#include "kj.jpeg.h"

class MMStream;

namespace kiu {

// Abstract image decoder.
class Decoder {
 public:
  virtual ~Decoder() = default;
  virtual unsigned char* DecodeImage() = 0;
  virtual unsigned long OutputWidth() const = 0;
  virtual unsigned long OutputHeight() const = 0;
};

}  // namespace kiu

namespace kjd {

// One coefficient. The reference arithmetic is over `long`, which is 32 bits
// on the target; a fixed 32-bit type keeps the host build identical.
using Coef = int32_t;

// 64 coefficients in natural (row-major) order.
struct Block {
  Coef coef[64];
};

// The narrow form of a block in a progressive image's whole-image store,
// used while every value a scan writes fits 16 bits (kj.dcoef).
struct Block16 {
  int16_t coef[64];
};

class Decoder;
struct Component;

using IdctFn = void (*)(Coef* block, unsigned char** rows, unsigned long column);
using McuFn = void (*)(Decoder*, Block**);
using McuFn16 = void (*)(Decoder*, Block16**);
using ConsumeFn = int (*)(Decoder*);
// One iMCU row of samples: output[ci] is the row-pointer array of component
// index ci (its v * DCT scaled size rows of this iMCU row). Returns non-zero
// after the last iMCU row.
using DecompressFn = int (*)(Decoder*, unsigned char*** output);
// A row colour converter: `count` pixels from planes[c][row] into `output`.
using ConvertFn = void (*)(unsigned long count, unsigned char*** planes, unsigned long row,
                           unsigned char* output);
// A component upsampler: one row group from `input` rows into `output` rows.
using UpsampleFn = void (*)(Decoder*, Component*, unsigned char** input, unsigned char**& output);

// The entropy decoder's bit buffer: a machine word, refilled several bytes
// at a time.
using BitWord = uintptr_t;

// The fast decoding tables of one Huffman table: the 8-bit lookahead near
// markers, and a longer one (kj.dhuff) that also yields a short code's
// magnitude bits.
struct DerivedTable {
  uint32_t look[1 << 10];
  uint8_t lookNbits[256];
  uint8_t lookSym[256];
  int32_t maxcode[18];    // 1..16, [17] = 0xFFFFF sentinel
  int32_t valoffset[17];  // 1..16
  const uint8_t* symbols;
};

struct Component {
  // Whole-image coefficient store of a multi-scan image: one pointer per
  // block row, sized in whole MCUs. The blocks come in bands of one iMCU row,
  // allocated when a scan first decodes into the band; null rows are absent
  // bands, whose coefficients are all zero. A band holds Block16 or Block as
  // the decoder's wideRows says for its iMCU row.
  struct WholeImage {
    void** rows;
    uint32_t rowCount;
    uint32_t blocksPerRow;
    static WholeImage* Create(Decoder* decoder, uint32_t rowCount, uint32_t blocksPerRow);
    // The `bandRows` block rows from `first` on, allocated zeroed with
    // `blockBytes` per block if absent.
    void** Band(Decoder* decoder, uint32_t first, uint32_t bandRows, uint32_t blockBytes);
  };

  const uint32_t* dctTable;  // table the inverse DCT stage dequantises with
  uint32_t* quantTable;      // latched copy, natural order; null until first scanned
  uint32_t dctScaledSize;    // 1, 2, 4 or 8; 0 means not chosen yet (taken as 8)
  uint32_t id;
  uint32_t index;
  uint32_t h;
  uint32_t v;
  uint32_t quantSlot;
  uint32_t dcSlot;
  uint32_t acSlot;
  uint32_t widthInBlocks;
  uint32_t heightInBlocks;
  // Scan geometry (Input_StartScan).
  uint32_t scaledWidth;  // widthInBlocks * dctScaledSize
  uint32_t mcuWidth;
  uint32_t mcuHeight;
  uint32_t mcuBlocks;
  uint32_t mcuSampleWidth;
  uint32_t lastColWidth;
  uint32_t lastRowHeight;
  int32_t lastDc;
  IdctFn idct;
  WholeImage* wholeImage;
  // Upsampling: null when the sample rows are already at full resolution.
  UpsampleFn upsample;
  uint32_t outputWidth;   // samples per upsampled row
  uint32_t rowsPerGroup;  // input rows per row group
  uint8_t hRepeat;
  uint8_t vRepeat;

  // Picks the inverse DCT for dctScaledSize (8 when unset) and the table it uses.
  void SelectDctTable();
};

class Decoder : public kiu::Decoder {
 public:
  Decoder(const unsigned char* data, unsigned long size, unsigned char alpha);
  Decoder(MMStream* stream, unsigned char alpha);
  ~Decoder() override;
  Decoder(const Decoder&) = delete;
  Decoder& operator=(const Decoder&) = delete;

  // Output: what the caller asked for, and how component rows become its
  // pixels, decided once per image (Upsample_Init).
  enum class OutputKind : uint8_t { kRgba, kPackedYuv, kI420 };
  enum class OutputPlan : uint8_t {
    kReplicated,     // chroma repeated into full rows, a 4-byte converter; alpha after
    kResampled,      // kReplicated at the DCT scale, then resampled (then YUV if asked)
    kMerged111,      // YCbCr 4:4:4 rows straight to RGBA
    kMerged211,      // YCbCr 4:2:2 to RGBA, chroma terms once per pair
    kMerged420,      // YCbCr 4:2:0 to RGBA, chroma terms once per 2x2
    kRawYuv111,      // YCbCr 4:4:4 samples as they are, packed or I420
    kRawYuv211,      // YCbCr 4:2:2 samples, chroma repeated, packed or I420
    kYuvOfRgb,       // the YUV of kReplicated's RGB, row by row, packed or I420
    kI420Merged420,  // YCbCr 4:2:0 to I420, the round trip once per 2x2
  };
  enum ColorModel : uint8_t { kCMYK = 1, kGrey = 2, kRGB = 3, kYCbCr = 4, kYCCK = 5 };
  struct Output {
    OutputKind kind = OutputKind::kRgba;
    OutputPlan plan = OutputPlan::kReplicated;
    uint8_t colorModel = 0;
    ConvertFn converter = nullptr;  // component rows to 4-byte pixels
    int32_t targetWidth = 0;
    int32_t targetHeight = 0;
    uint32_t rowGroupRows = 0;
    unsigned char** upsampledRows[4] = {};
    unsigned char* rgbaRow = nullptr;  // one 4-byte row on the way to YUV
    // Chroma repeated into full rows before a row converter; the other plans
    // read the inverse-DCT rows of the layout-specific controllers.
    bool Upsampled() const {
      return plan == OutputPlan::kReplicated || plan == OutputPlan::kResampled ||
             plan == OutputPlan::kYuvOfRgb;
    }
  };
  // Where the rows go: packed rows of `stride` bytes up to `end`, or I420
  // planes of the even size `width` x `height`.
  struct OutputTarget {
    unsigned char* pixels = nullptr;
    unsigned char* end = nullptr;
    unsigned long stride = 0;
    unsigned char* planes[3] = {};
    uint32_t strides[3] = {};
    uint32_t width = 0;
    uint32_t height = 0;
  };

  unsigned char* DecodeImage() override { return DecodeImage(0, 0); }
  // Decodes at the DCT scale that suits the requested size; the pixel buffer
  // comes from kau::mem::New. Null when row production failed.
  unsigned char* DecodeImage(long width, long height);
  // The two halves of DecodeImage: the scale and output plan for the
  // requested size (reading every scan of a multi-scan image), then the rows
  // into `target`. The second prints a failure and returns false, keeping
  // its cause for RowsFailure.
  void PlanOutput(long width, long height);
  bool ProduceRows(const OutputTarget& target);
  const kau::Fault& RowsFailure() const { return rowsFailure; }
  bool NeedsRescale() const { return output.plan == OutputPlan::kResampled; }
  // Post-processing of the two output kinds; each may replace `pixels`
  // (freeing the old buffer) and returns the current one.
  unsigned char* ScaleImageAndFillAlpha(unsigned char*& pixels);
  unsigned char* ScaleImageYUV(unsigned char*& pixels);
  unsigned long OutputWidth() const override { return outputWidth; }
  unsigned long OutputHeight() const override { return outputHeight; }

  void* Allocate(unsigned long size) { return heap.Allocate(size); }

  // ---- Input (kj.dinput) ----
  unsigned GetInputByte() {
    if (++inputPosition < inputEnd) return *inputPosition;
    return RefillForByte();
  }
  unsigned GetInputUint16() {
    unsigned hi = GetInputByte();
    return (hi << 8) | GetInputByte();
  }
  void SkipInput(long count);
  unsigned char* Input_Load(unsigned char* destination);
  static const unsigned char* Input_Reload(Decoder* d, const unsigned char*& position);
  void GetSOI();
  void GetSOF();
  void GetDQT();
  void GetDHT();
  void GetDRI();
  void GetSOS();
  void GetAPP1();
  void GetAPPn();
  void SkipVariable();
  void Input_GetNextMarker();
  static int Input_ReadMarkers0(Decoder* d);
  void Input_ReadRestartMarker();
  void Input_StartScan();
  // Before entropy-coded data is read: when the header reader has run into
  // the closing (or synthetic) 0xFF 0xD9 and taken its 0xFF, step back so
  // that the entropy reader meets the whole pair as a marker and never reads
  // past it.
  void Input_EnterEntropyData() {
    if ((sourceStream == nullptr || inputExhausted) && inputPosition >= inputEnd - 2)
      inputPosition = inputEnd - 3;
  }

  // ---- Entropy decoding (kj.dhuff) ----
  void Huff_MakeDerivedTable(bool isDc, int slot, DerivedTable*& table);
  void Huff_StartPass();
  void Phuff_StartPass();
  void Huff_RestartProcess();
  void Phuff_RestartProcess();
  static void Huff_DecodeMCU0(Decoder* d, Block** blocks);
  static void Phuff_DecodeMCU_DC_first0(Decoder* d, Block** blocks);
  static void Phuff_DecodeMCU_DC_refine0(Decoder* d, Block** blocks);
  static void Phuff_DecodeMCU_AC_first0(Decoder* d, Block** blocks);
  static void Phuff_DecodeMCU_AC_refine0(Decoder* d, Block** blocks);
  // The same on narrow blocks: a value beyond 16 bits is kept in `spills`
  // as well (kj.dcoef then widens the iMCU row).
  static void Phuff_DecodeMCU_DC_first0(Decoder* d, Block16** blocks);
  static void Phuff_DecodeMCU_DC_refine0(Decoder* d, Block16** blocks);
  static void Phuff_DecodeMCU_AC_first0(Decoder* d, Block16** blocks);
  static void Phuff_DecodeMCU_AC_refine0(Decoder* d, Block16** blocks);
  static int Huff_DecodeLong(Decoder* d, const unsigned char*& position, BitWord& buffer, int32_t& bits,
                             const DerivedTable* table);
  static int Huff_DecodeNearMarker(Decoder* d, const unsigned char*& position, BitWord& buffer, int32_t& bits,
                                   const DerivedTable* table);

  // ---- Coefficient controllers (kj.dcoef) ----
  // The per-MCU step shared by every controller: restart, count, decode.
  template <class B>
  void Dcoef_DecodeStep(B** blocks, void (*decode)(Decoder*, B**)) {
    if (restartInterval != 0 && restartsToGo == 0) {
      if (progressive)
        Phuff_RestartProcess();
      else
        Huff_RestartProcess();
    }
    --restartsToGo;
    if (!insufficientData) decode(this, blocks);
  }
  static int Dcoef_DecompressSingleScan111(Decoder* d, unsigned char*** output);
  static int Dcoef_DecompressSingleScan420(Decoder* d, unsigned char*** output);
  static int Dcoef_DecompressSingleScan211(Decoder* d, unsigned char*** output);
  static int Dcoef_DecompressSingleScan0(Decoder* d, unsigned char*** output);
  static int Dcoef_ReadMultiScan0(Decoder* d);
  static int Dcoef_DecompressMultiScan0(Decoder* d, unsigned char*** output);
  // Bytes the whole-image stores of a multi-scan image take once every band
  // is decoded; 0 for a single-scan image.
  uint64_t Dcoef_StoreBytes() const;
  // Sets up the coefficient side for the first scan: the MCU buffer of a
  // single-scan image (returning the matching controller) or the whole-image
  // stores of a multi-scan image, after which every scan is read (returning
  // the multi-scan output controller). Call after every component has its
  // DCT scaled size and after Input_StartScan. With `specialised` false a
  // single-scan image always gets Dcoef_DecompressSingleScan0.
  DecompressFn Dcoef_Prepare(bool specialised = true);

  // Component sample planes at DCT scaled size `scaledSize` (8, 4, 2, 1),
  // before upsampling and colour conversion: the seam the upsampler reads,
  // used directly by tests and the benchmark. Planes come from the heap.
  struct Plane {
    unsigned char* data;
    uint32_t stride;  // bytes per row
    uint32_t width;   // visible samples per row
    uint32_t height;  // visible rows
  };
  // Fills planes[0 .. componentCount - 1].
  void Dcoef_DecodeToPlanes(uint32_t scaledSize, Plane* planes, bool specialised = true);

  // ---- Upsampling and pixel output (kj.dupsample) ----
  void Upsample_SelectFormat();
  void Upsample_FindComponentDimensions(Component* component, unsigned long size);
  void Upsample_Init(bool rescale);
  unsigned char* Upsample_ConvertRowsInGroup(unsigned char* output, unsigned char* end, unsigned long stride);
  // Every row of the image into `target`, packed or I420, by the plan.
  void Upsample_ProcessSingleRows(const OutputTarget& target);
  static void Upsample_H2V1(Decoder* d, Component* c, unsigned char** input, unsigned char**& output);
  static void Upsample_H2V2(Decoder* d, Component* c, unsigned char** input, unsigned char**& output);
  static void Upsample_HandleAnyIntegralRatios(Decoder* d, Component* c, unsigned char** input,
                                               unsigned char**& output);
  static void Upsample_HalfHandleAnyIntegralRatios(Decoder* d, Component* c, unsigned char** input,
                                                   unsigned char**& output);

  // ---- Inverse DCT (kj.didct) ----
  static void IDCT_8x8(Coef* block, unsigned char** rows, unsigned long column);
  static void IDCT_8x8c(Coef* column);
  static void IDCT_8x8r(unsigned char* out, Coef* row);
  static void IDCT_4x4(Coef* block, unsigned char** rows, unsigned long column);
  static void IDCT_2x2(Coef* block, unsigned char** rows, unsigned long column);
  static void IDCT_1x1(Coef* block, unsigned char** rows, unsigned long column);

  // Zigzag to natural order, with 16 guard entries of 63.
  static constexpr const int32_t (&jpegNaturalOrder)[80] = kj::kNaturalOrder;

  static const unsigned char* const idctRangeLimit;

  // ---- State (plain data, grouped by stage) ----
  const unsigned char* inputEnd = nullptr;
  unsigned unreadMarker = 0;
  BitWord bitBuffer = 0;
  int32_t bitsLeft = 0;
  uint8_t insufficientData = 0;
  const unsigned char* inputPosition = nullptr;
  unsigned char* inputBuffer = nullptr;
  MMStream* sourceStream = nullptr;
  uint8_t inputExhausted = 0;  // stream input: the last load found no data
  uint32_t imageWidth = 0;
  uint32_t imageHeight = 0;
  uint32_t outputWidth = 0;
  uint32_t outputHeight = 0;
  uint32_t scansSeen = 0;
  uint32_t restartsToGo = 0;
  uint32_t eobRun = 0;
  int32_t* coefBits = nullptr;
  uint32_t* quantTables[4] = {};
  uint8_t* dcHuffTables[4] = {};
  uint8_t* acHuffTables[4] = {};
  Component* components = nullptr;
  Component* componentsEnd = nullptr;
  uint32_t componentCount = 0;
  uint8_t progressive = 0;
  uint32_t restartInterval = 0;
  // APP0 "JFIF" and APP14 "Adobe": the colour model's evidence.
  struct ColourMarkers {
    uint8_t jfifSeen = 0;
    uint8_t jfifMajor = 1;
    uint8_t jfifMinor = 1;
    uint8_t adobeSeen = 0;
    uint8_t adobeTransform = 0;
  };
  ColourMarkers markers;
  uint32_t maxH = 0;
  uint32_t maxV = 0;
  uint32_t inputImcuRow = 0;
  uint32_t outputImcuRow = 0;
  uint32_t mcuRows = 0;
  int32_t componentsInScan = 0;
  Component* scanComponents[4] = {};
  uint32_t mcusPerRow = 0;
  int32_t blocksInMcu = 0;
  Component* mcuMembership[kj::kMaxBlocksInMcu] = {};
  uint32_t Ss = 0, Se = 0, Ah = 0, Al = 0;
  DerivedTable* dcDerived[4] = {};
  DerivedTable* acDerived[4] = {};
  DerivedTable* progDerived[4] = {};
  DerivedTable* progAcTable = nullptr;
  const DerivedTable* blockDcTable[kj::kMaxBlocksInMcu] = {};
  const DerivedTable* blockAcTable[kj::kMaxBlocksInMcu] = {};
  McuFn decodeMcu = nullptr;
  McuFn16 decodeMcu16 = nullptr;  // progressive scans on narrow stores
  // Per iMCU row: 1 when its bands hold Block, 0 for Block16.
  uint8_t* wideRows = nullptr;
  // Values of the current MCU that did not fit a narrow block, with where
  // their truncated copies went (at most one per coefficient of an MCU).
  struct Spill {
    int16_t* at;
    int32_t value;
  };
  Spill* spills = nullptr;
  uint32_t spillCount = 0;
  Block* mcuBuffer = nullptr;
  Block* mcuBlocks[kj::kMaxBlocksInMcu] = {};
  Output output;
  uint32_t dctScaledSize = 8;
  uint8_t alphaValue = 0;
  uint8_t singleScan = 0;
  uint8_t eoiReached = 0;
  uint8_t soiSeen = 0;
  uint8_t sofSeen = 0;
  uint32_t nextRestart = 0;
  ConsumeFn consumeInput = nullptr;
  DecompressFn decompress = nullptr;
  DecodeLimits limits;      // set by the entry points before DecodeImage
  uint32_t inputBytes = 0;  // bytes of input from SOI on; 0 when unknown
  kau::mem::Heap heap;

 private:
  kau::Fault rowsFailure{};
  unsigned RefillForByte();
  void CheckLimits() const;
  void ReadHeadersFromMemory(const unsigned char* data, unsigned long size);
};

}  // namespace kjd

#endif  // KJ_D_KJ_D_H
