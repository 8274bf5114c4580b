// Coefficient controllers: single-scan controllers that decode an
// MCU and transform it at once, and the multi-scan pair that collects every
// scan into whole-image stores and transforms afterwards.
#include "kj.dcoef.h"

namespace kjd {
namespace {

constexpr const char* kSrcD = "gstreamer/gst-plugins-extension/Codec/SW/JPEG/kj.d/kj.d";
constexpr kau::Fault kSiteAfterEOI{kSrcD, 106, kau::Category::kTruncated,
                                   "the image ends before its pixel data"};

inline void ClearBlocks(Block* first, int count) {
  kau::mem::Zero32(first, static_cast<unsigned long>(count) * 64);
}

// Whether the decoding step of the next MCU can decode: once the data ran
// out only a due restart brings more.
inline bool MayDecode(const Decoder* d) {
  return !d->insufficientData || (d->restartInterval != 0 && d->restartsToGo == 0);
}

// Whether the next MCU of a progressive AC scan lies inside an EOB run: its
// block is then left alone (first scan) or only its non-zero coefficients
// are refined, so an absent band's block stays zero without being stored.
inline bool InEobRun(const Decoder* d) {
  return d->progressive && d->Ss != 0 && d->eobRun > 0 && !(d->restartInterval != 0 && d->restartsToGo == 0);
}

// Dequantisation on the way into the inverse DCT's block, so the store is
// read once and never written back. The buffers never overlap: restrict lets
// the loop vectorise.
template <class T>
inline void Dequantise(Coef* __restrict out, const T* __restrict coef, const uint32_t* __restrict q) {
  for (int k = 0; k < 64; ++k)
    out[k] = static_cast<Coef>(static_cast<uint32_t>(static_cast<int32_t>(coef[k])) * q[k]);
}

// Narrow blocks with a table whose values are all below 32768 (any 8-bit
// table): the 16 x 16 -> 32-bit products stay below 2^31, so they equal the
// wrapping ones, and the loop vectorises as widening multiplies.
inline void Dequantise(Coef* __restrict out, const int16_t* __restrict coef, const int16_t* __restrict q) {
  for (int k = 0; k < 64; ++k) out[k] = static_cast<int32_t>(coef[k]) * static_cast<int32_t>(q[k]);
}

// One block row of the final pass: each block dequantised into `work`, then
// transformed.
template <class B, class Q>
inline void TransformRow(const B* block, const Q* q, uint32_t width, uint32_t s, IdctFn idct,
                         unsigned char** at, Coef* work) {
  for (uint32_t column = 0; column < width; column += s, ++block) {
    Dequantise(work, block->coef, q);
    idct(work, at, column);
  }
}

inline int FinishInputRow(Decoder* d) {
  if (d->inputImcuRow == d->mcuRows) {
    d->consumeInput = Decoder::Input_ReadMarkers0;
    return 1;
  }
  return 0;
}

}  // namespace

int Decoder::Dcoef_DecompressSingleScan0(Decoder* d, unsigned char*** output) {
  const bool last = ++d->inputImcuRow == d->mcuRows;
  Block** blocks = d->mcuBlocks;
  if (d->componentsInScan == 1) {
    Component* c = d->scanComponents[0];
    const uint32_t s = c->dctScaledSize;
    const uint32_t rows = last ? c->lastRowHeight : c->v;
    unsigned char** out = output[c->index];
    const IdctFn idct = c->idct;
    for (uint32_t y = 0; y < rows; ++y) {
      for (uint32_t x = 0; x < d->mcusPerRow; ++x) {
        ClearBlocks(blocks[0], 1);
        d->Dcoef_DecodeStep(blocks, d->decodeMcu);
        idct(blocks[0]->coef, out + y * s, x * s);
      }
    }
  } else {
    const uint32_t lastColumn = d->mcusPerRow - 1;
    for (uint32_t x = 0; x < d->mcusPerRow; ++x) {
      ClearBlocks(blocks[0], d->blocksInMcu);
      d->Dcoef_DecodeStep(blocks, d->decodeMcu);
      int b = 0;
      for (int i = 0; i < d->componentsInScan; ++i) {
        Component* c = d->scanComponents[i];
        const uint32_t s = c->dctScaledSize;
        const uint32_t cols = x == lastColumn ? c->lastColWidth : c->mcuWidth;
        const uint32_t rows = last ? c->lastRowHeight : c->mcuHeight;
        unsigned char** out = output[c->index];
        const unsigned long column = x * c->mcuWidth * s;
        for (uint32_t y = 0; y < c->mcuHeight; ++y, b += static_cast<int>(c->mcuWidth)) {
          if (y >= rows) continue;
          for (uint32_t i2 = 0; i2 < cols; ++i2) c->idct(blocks[b + i2]->coef, out + y * s, column + i2 * s);
        }
      }
    }
  }
  return FinishInputRow(d);
}

int Decoder::Dcoef_DecompressSingleScan111(Decoder* d, unsigned char*** output) {
  ++d->inputImcuRow;
  Block** blocks = d->mcuBlocks;
  Component* y = d->components;
  const IdctFn idct = y->idct;
  const uint32_t s = y->dctScaledSize;
  unsigned char** o0 = output[0];
  unsigned char** o1 = output[1];
  unsigned char** o2 = output[2];
  unsigned long column = 0;
  for (uint32_t x = 0; x < d->mcusPerRow; ++x, column += s) {
    ClearBlocks(blocks[0], 3);
    d->Dcoef_DecodeStep(blocks, Huff_DecodeMCU0);
    idct(blocks[0]->coef, o0, column);
    idct(blocks[1]->coef, o1, column);
    idct(blocks[2]->coef, o2, column);
  }
  return FinishInputRow(d);
}

int Decoder::Dcoef_DecompressSingleScan420(Decoder* d, unsigned char*** output) {
  const bool last = ++d->inputImcuRow == d->mcuRows;
  Block** blocks = d->mcuBlocks;
  Component* y = d->components;
  const IdctFn idct = y->idct;
  const uint32_t s = y->dctScaledSize;
  const bool secondRow = !last || y->lastRowHeight == 2;
  const bool narrowLast = y->lastColWidth == 1;
  unsigned char** oy = output[0];
  unsigned char** oy2 = output[0] + s;
  unsigned char** ou = output[1];
  unsigned char** ov = output[2];
  const uint32_t lastColumn = d->mcusPerRow - 1;
  for (uint32_t x = 0; x < d->mcusPerRow; ++x) {
    ClearBlocks(blocks[0], 6);
    d->Dcoef_DecodeStep(blocks, Huff_DecodeMCU0);
    const unsigned long cy = 2ul * x * s;
    const bool right = !(narrowLast && x == lastColumn);
    idct(blocks[0]->coef, oy, cy);
    if (right) idct(blocks[1]->coef, oy, cy + s);
    if (secondRow) {
      idct(blocks[2]->coef, oy2, cy);
      if (right) idct(blocks[3]->coef, oy2, cy + s);
    }
    idct(blocks[4]->coef, ou, x * s);
    idct(blocks[5]->coef, ov, x * s);
  }
  return FinishInputRow(d);
}

int Decoder::Dcoef_DecompressSingleScan211(Decoder* d, unsigned char*** output) {
  ++d->inputImcuRow;
  Block** blocks = d->mcuBlocks;
  Component* y = d->components;
  const IdctFn idct = y->idct;
  const uint32_t s = y->dctScaledSize;
  const bool narrowLast = y->lastColWidth == 1;
  unsigned char** oy = output[0];
  unsigned char** ou = output[1];
  unsigned char** ov = output[2];
  const uint32_t lastColumn = d->mcusPerRow - 1;
  for (uint32_t x = 0; x < d->mcusPerRow; ++x) {
    ClearBlocks(blocks[0], 4);
    d->Dcoef_DecodeStep(blocks, Huff_DecodeMCU0);
    const unsigned long cy = 2ul * x * s;
    idct(blocks[0]->coef, oy, cy);
    if (!(narrowLast && x == lastColumn)) idct(blocks[1]->coef, oy, cy + s);
    idct(blocks[2]->coef, ou, x * s);
    idct(blocks[3]->coef, ov, x * s);
  }
  return FinishInputRow(d);
}

namespace {

// The whole-image store of a progressive image starts narrow: every block of
// a valid file fits 16 bits (coefficients of 8-bit samples stay within 11
// bits, point transform included), which halves the store and the memory
// every scan and the final pass walk. Corrupt data can drive a value far
// beyond (DC differences accumulate, shifts by Al), and its 32-bit wrapping
// arithmetic must stay exact; so a scan that writes such a value records it
// (Decoder::spills) and, after that MCU, its iMCU row is widened: the row's
// bands of every component become Block, the recorded values are put in,
// and the row stays wide for the rest of the image. Within one MCU no
// coefficient is written twice or read after it was written, so the
// truncated copies are never used. Widening per iMCU row keeps the cost of
// a corrupt file to one row's extra band; sequential multi-scan images store
// dequantised values and are wide from the start.
void WidenRow(Decoder* d, uint32_t row) {
  for (Component* c = d->components; c != d->componentsEnd; ++c) {
    void** band = c->wholeImage->rows + row * c->v;
    if (band[0] == nullptr) continue;
    const uint32_t count = c->v * c->wholeImage->blocksPerRow;
    // The band's rows lie back to back (WholeImage::Band), block by block.
    const Block16* from = static_cast<const Block16*>(band[0]);
    Block* wide = d->heap.AllocateArray<Block>(count);
    for (uint32_t b = 0; b < count; ++b)
      for (int k = 0; k < 64; ++k) wide[b].coef[k] = from[b].coef[k];
    const auto first = reinterpret_cast<uintptr_t>(from);
    for (uint32_t i = 0; i < d->spillCount; ++i) {
      const Decoder::Spill& s = d->spills[i];
      const uintptr_t offset = (reinterpret_cast<uintptr_t>(s.at) - first) / sizeof(int16_t);
      if (offset < uintptr_t{count} * 64) wide[offset / 64].coef[offset % 64] = s.value;
    }
    for (uint32_t r = 0; r < c->v; ++r) band[r] = wide + r * c->wholeImage->blocksPerRow;
  }
  d->spillCount = 0;
  d->wideRows[row] = 1;
}

// MCUs of the current scan in iMCU row `row`, from MCU `from` (in the row's
// order) on. Returns the MCU after the last one decoded: the row's MCU
// count, or earlier after an MCU that left spills in narrow blocks.
template <class B>
uint32_t ReadRow(Decoder* d, uint32_t row, bool last, uint32_t from, void (*decode)(Decoder*, B**)) {
  constexpr uint32_t kBlockBytes = sizeof(B);
  if (d->componentsInScan == 1) {
    Component* c = d->scanComponents[0];
    const uint32_t rows = last ? c->lastRowHeight : c->v;
    const uint32_t width = c->widthInBlocks;
    void** band = c->wholeImage->rows + row * c->v;
    void** storeRows = nullptr;
    uint32_t x0 = from % width;
    for (uint32_t y = from / width; y < rows; ++y, x0 = 0) {
      B* store = nullptr;
      for (uint32_t x = x0; x < width; ++x) {
        // An existing band is always taken; an absent one is made only for
        // an MCU that may change its block.
        if (storeRows == nullptr && (band[0] != nullptr || (MayDecode(d) && !InEobRun(d))))
          storeRows = c->wholeImage->Band(d, row * c->v, c->v, kBlockBytes);
        if (store == nullptr && storeRows != nullptr) store = static_cast<B*>(storeRows[y]);
        B* one = store != nullptr ? store + x : reinterpret_cast<B*>(d->mcuBuffer);
        d->Dcoef_DecodeStep(&one, decode);
        if (sizeof(B) == sizeof(Block16) && d->spillCount != 0) return y * width + x + 1;
      }
    }
    return rows * width;
  }
  B* pointers[kj::kMaxBlocksInMcu] = {};
  bool banded = false;
  for (uint32_t x = from; x < d->mcusPerRow; ++x) {
    if (!banded && MayDecode(d)) banded = true;
    int n = 0;
    for (int i = 0; banded && i < d->componentsInScan; ++i) {
      Component* c = d->scanComponents[i];
      void** storeRows = c->wholeImage->Band(d, row * c->v, c->v, kBlockBytes);
      for (uint32_t y = 0; y < c->mcuHeight; ++y)
        for (uint32_t i2 = 0; i2 < c->mcuWidth; ++i2)
          pointers[n++] = static_cast<B*>(storeRows[y]) + x * c->mcuWidth + i2;
    }
    d->Dcoef_DecodeStep(pointers, decode);
    if (sizeof(B) == sizeof(Block16) && d->spillCount != 0) return x + 1;
  }
  return d->mcusPerRow;
}

}  // namespace

int Decoder::Dcoef_ReadMultiScan0(Decoder* d) {
  const uint32_t row = d->inputImcuRow++;
  const bool last = d->inputImcuRow == d->mcuRows;
  // Out of data with no restart to come: the rest of the scan decodes
  // nothing, so its rows are passed over and their bands stay absent.
  if (d->insufficientData && d->restartInterval == 0) return FinishInputRow(d);
  uint32_t from = 0;
  if (!d->wideRows[row]) {
    from = ReadRow(d, row, last, 0, d->decodeMcu16);
    if (d->spillCount == 0) return FinishInputRow(d);
    WidenRow(d, row);
  }
  ReadRow(d, row, last, from, d->decodeMcu);
  return FinishInputRow(d);
}

int Decoder::Dcoef_DecompressMultiScan0(Decoder* d, unsigned char*** output) {
  const uint32_t row = d->outputImcuRow;
  const bool last = row + 1 == d->mcuRows;
  const bool wide = d->wideRows[row] != 0;
  alignas(32) Block work;  // the dequantised block the inverse DCT consumes
  for (Component* c = d->components; c != d->componentsEnd; ++c) {
    if (c->idct == nullptr) c->SelectDctTable();
    const uint32_t s = c->dctScaledSize;
    const uint32_t rest = c->heightInBlocks % c->v;
    const uint32_t rows = last && rest != 0 ? rest : c->v;
    const uint32_t width = c->widthInBlocks * s;
    const uint32_t* q = c->quantTable;
    const IdctFn idct = c->idct;
    unsigned char** out = output[c->index];
    void** band = c->wholeImage->rows + row * c->v;
    if (band[0] == nullptr) {
      // No scan decoded into this band: every block is zero, whose samples
      // are all 128 at any scale.
      for (uint32_t y = 0; y < rows * s; ++y) kau::mem::Set8(out[y], 128, width);
      continue;
    }
    alignas(16) int16_t q16[64];
    bool narrowQ = !wide;
    for (int k = 0; narrowQ && k < 64; ++k) {
      narrowQ = q[k] < 0x8000;
      q16[k] = static_cast<int16_t>(q[k]);
    }
    for (uint32_t y = 0; y < rows; ++y) {
      unsigned char** at = out + y * s;
      if (!wide && narrowQ) {
        TransformRow(static_cast<const Block16*>(band[y]), q16, width, s, idct, at, work.coef);
      } else if (!wide) {
        TransformRow(static_cast<const Block16*>(band[y]), q, width, s, idct, at, work.coef);
      } else if (d->progressive) {
        TransformRow(static_cast<const Block*>(band[y]), q, width, s, idct, at, work.coef);
      } else {
        // Sequential scans stored dequantised values; the transform may use
        // the stored block as its workspace.
        Block* block = static_cast<Block*>(band[y]);
        for (uint32_t column = 0; column < width; column += s, ++block) idct(block->coef, at, column);
      }
    }
  }
  d->outputImcuRow = row + 1;
  return d->outputImcuRow == d->mcuRows;
}

DecompressFn Decoder::Dcoef_Prepare(bool specialised) {
  if (singleScan) {
    mcuBuffer = heap.AllocateArray<Block>(kj::kMaxBlocksInMcu);
    for (int i = 0; i < kj::kMaxBlocksInMcu; ++i) mcuBlocks[i] = mcuBuffer + i;
    if (specialised && componentCount == 3 && componentsInScan == 3) {
      const Component* c = components;
      const bool chroma11 = c[1].h == 1 && c[1].v == 1 && c[2].h == 1 && c[2].v == 1;
      const bool sameSize =
          c[0].dctScaledSize == c[1].dctScaledSize && c[0].dctScaledSize == c[2].dctScaledSize;
      const bool inOrder =
          scanComponents[0] == &c[0] && scanComponents[1] == &c[1] && scanComponents[2] == &c[2];
      if (chroma11 && sameSize && inOrder) {
        if (c[0].h == 1 && c[0].v == 1) return Dcoef_DecompressSingleScan111;
        if (c[0].h == 2 && c[0].v == 2) return Dcoef_DecompressSingleScan420;
        if (c[0].h == 2 && c[0].v == 1) return Dcoef_DecompressSingleScan211;
      }
    }
    return Dcoef_DecompressSingleScan0;
  }
  mcuBuffer = heap.AllocateZeroedArray<Block>(1);  // the zero block EOB runs pass over
  wideRows = heap.AllocateZeroedArray<uint8_t>(mcuRows);
  if (progressive)
    spills = heap.AllocateArray<Spill>(64);
  else
    kau::mem::Set8(wideRows, 1, mcuRows);
  for (Component* c = components; c != componentsEnd; ++c) {
    const uint32_t rows = kau::RoundUp(c->heightInBlocks, c->v);
    const uint32_t cols = kau::RoundUp(c->widthInBlocks, c->h);
    c->wholeImage = Component::WholeImage::Create(this, rows, cols);
  }
  while (!eoiReached) consumeInput(this);
  outputImcuRow = 0;
  return Dcoef_DecompressMultiScan0;
}

// Counted at 32 bits a coefficient: corrupt data may widen every band.
uint64_t Decoder::Dcoef_StoreBytes() const {
  if (singleScan) return 0;
  uint64_t blocks = 0;
  for (const Component* c = components; c != componentsEnd; ++c)
    blocks += uint64_t{kau::RoundUp(c->heightInBlocks, c->v)} * kau::RoundUp(c->widthInBlocks, c->h);
  return blocks * sizeof(Block);
}

Component::WholeImage* Component::WholeImage::Create(Decoder* decoder, uint32_t rowCount,
                                                     uint32_t blocksPerRow) {
  const uint64_t blocks = uint64_t{rowCount} * blocksPerRow;
  if (blocks > UINT32_MAX / sizeof(Block)) kau::Throw(kau::kSiteRoundUp);
  auto* image = static_cast<WholeImage*>(decoder->Allocate(sizeof(WholeImage)));
  image->rowCount = rowCount;
  image->blocksPerRow = blocksPerRow;
  image->rows = decoder->heap.AllocateZeroedArray<void*>(rowCount == 0 ? 1 : rowCount);
  return image;
}

void** Component::WholeImage::Band(Decoder* decoder, uint32_t first, uint32_t bandRows, uint32_t blockBytes) {
  void** band = rows + first;
  if (band[0] == nullptr) {
    // Create bounded the whole store, so a band's size fits 32 bits.
    const uint32_t blocks = bandRows * blocksPerRow == 0 ? 1 : bandRows * blocksPerRow;
    auto* all = decoder->heap.AllocateZeroedArray<unsigned char>(blocks * blockBytes);
    for (uint32_t r = 0; r < bandRows; ++r) band[r] = all + r * blocksPerRow * blockBytes;
  }
  return band;
}

void Decoder::Dcoef_DecodeToPlanes(uint32_t scaledSize, Plane* planes, bool specialised) {
  if (eoiReached || !sofSeen) kau::Throw(kSiteAfterEOI);
  if (scaledSize != 1 && scaledSize != 2 && scaledSize != 4) scaledSize = 8;
  for (Component* c = components; c != componentsEnd; ++c) {
    c->dctScaledSize = scaledSize;
    c->SelectDctTable();
  }
  Input_StartScan();
  decompress = Dcoef_Prepare(specialised);

  unsigned char*** output = heap.AllocateArray<unsigned char**>(componentCount);
  const uint32_t mcuColumns = kau::CeilDiv(imageWidth, 8 * maxH);
  for (Component* c = components; c != componentsEnd; ++c) {
    Plane& p = planes[c->index];
    uint64_t stride = uint64_t{mcuColumns} * c->h * scaledSize;
    uint64_t rows = uint64_t{mcuRows} * c->v * scaledSize;
    if (stride * rows > UINT32_MAX) kau::Throw(kau::kSiteRoundUp);
    p.stride = static_cast<uint32_t>(stride);
    p.data = static_cast<unsigned char*>(Allocate(static_cast<unsigned long>(stride * rows)));
    p.width = kau::CeilDiv(imageWidth * c->h * scaledSize, 8 * maxH);
    p.height = kau::CeilDiv(imageHeight * c->v * scaledSize, 8 * maxV);
    output[c->index] = heap.AllocateArray<unsigned char*>(c->v * scaledSize);
  }
  for (uint32_t row = 0; row < mcuRows; ++row) {
    for (Component* c = components; c != componentsEnd; ++c) {
      const uint32_t n = c->v * scaledSize;
      unsigned char* first = planes[c->index].data + uint64_t{row} * n * planes[c->index].stride;
      for (uint32_t r = 0; r < n; ++r) output[c->index][r] = first + r * planes[c->index].stride;
    }
    decompress(this, output);
  }
  // Read what follows the last scan up to EOI (a single-scan image may have
  // no second scan, kj.dinput 206).
  while (!eoiReached) consumeInput(this);
}

}  // namespace kjd
