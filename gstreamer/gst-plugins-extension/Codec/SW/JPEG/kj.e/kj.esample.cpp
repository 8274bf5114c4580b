#include "kj.e/kj.esample.h"

#include "kj.e/kj.e.h"
#include "kj.e/kj.ekernels.h"

namespace kje {

namespace {
constexpr const char* kSource = "gstreamer/gst-plugins-extension/Codec/SW/JPEG/kj.e/kj.esample";
constexpr kau::Fault kSiteRgbNeedsPackedInput{kSource, 325, kau::Category::kBadArgument,
                                              "RGB output needs packed pixel input"};
constexpr kau::Fault kSitePlanarLumaFactors{kSource, 362, kau::Category::kInternal,
                                            "planar input needs luma sampled 2x2"};
constexpr kau::Fault kSitePlanarCbFactors{kSource, 364, kau::Category::kInternal,
                                          "planar input needs Cb sampled 1x1"};
constexpr kau::Fault kSitePlanarCrFactors{kSource, 366, kau::Category::kInternal,
                                          "planar input needs Cr sampled 1x1"};
constexpr kau::Fault kSiteBadInputFormat{kSource, 369, kau::Category::kBadArgument,
                                         "an input pixel format the encoder does not take"};
constexpr kau::Fault kSiteBadOutputFormat{kSource, 372, kau::Category::kBadArgument,
                                          "an output format the encoder does not write"};
constexpr kau::Fault kSiteBadSamplingFactor{kSource, 377, kau::Category::kInternal,
                                            "a sampling factor outside 1..4"};
constexpr kau::Fault kSiteMcuTooLarge{kSource, 396, kau::Category::kInternal,
                                      "an MCU with more than 10 blocks"};
constexpr kau::Fault kSiteNoDownsampler{kSource, 427, kau::Category::kInternal,
                                        "no downsampler for this sampling"};

void SetComponent(Component& c, int id, int h, int v, int table) {
  c.id = id;
  c.h = h;
  c.v = v;
  c.quantTable = table;
  c.dcTable = table;
  c.acTable = table;
}
}  // namespace

void Encoder::Sampler_Start() {
  const bool planar = IsPlanar(inputFormat_);
  if (IsPackedRGB(outputFormat_)) {
    SetComponent(components_[0], 'R', 1, 1, 0);
    SetComponent(components_[1], 'G', 1, 1, 0);
    SetComponent(components_[2], 'B', 1, 1, 0);
    writeAdobe_ = true;
    if (!IsPackedRGB(inputFormat_)) kau::Throw(kSiteRgbNeedsPackedInput);
    inputRowBytes_ = paddedWidth_ * 4;
    convert_ = &Encoder::Sampler_ConvertRGB;
  } else if (IsYCbCrOutput(outputFormat_)) {
    SetComponent(components_[0], 1, 2, 2, 0);
    SetComponent(components_[1], 2, 1, 1, 1);
    SetComponent(components_[2], 3, 1, 1, 1);
    writeJfif_ = true;
    if (IsPackedRGB(inputFormat_)) {
      inputRowBytes_ = paddedWidth_ * 4;
      convert_ = &Encoder::Sampler_PointAtPacked;
    } else if (planar) {
      // Chroma rows are the padded width rounded up to 8, halved.
      uint32_t chromaStride = kau::RoundUp(paddedWidth_, 8) / 2;
      components_[0].planeStride = paddedWidth_;
      components_[1].planeStride = chromaStride;
      components_[2].planeStride = chromaStride;
      inputRowBytes_ = paddedWidth_;
      convert_ = &Encoder::Sampler_PointAtPlanes;
      if (components_[0].h != 2 || components_[0].v != 2) kau::Throw(kSitePlanarLumaFactors);
      if (components_[1].h != 1 || components_[1].v != 1) kau::Throw(kSitePlanarCbFactors);
      if (components_[2].h != 1 || components_[2].v != 1) kau::Throw(kSitePlanarCrFactors);
    } else {
      kau::Throw(kSiteBadInputFormat);
    }
  } else {
    kau::Throw(kSiteBadOutputFormat);
  }
  componentsEnd_ = components_ + 3;

  hmax_ = 1;
  vmax_ = 1;
  for (Component* c = components_; c != componentsEnd_; ++c) {
    if (c->h < 1 || c->h > 4 || c->v < 1 || c->v > 4) kau::Throw(kSiteBadSamplingFactor);
    if (c->h > hmax_) hmax_ = c->h;
    if (c->v > vmax_) vmax_ = c->v;
  }

  blocksInMcu_ = 0;
  for (Component* c = components_; c != componentsEnd_; ++c) {
    const uint32_t h = static_cast<uint32_t>(c->h), v = static_cast<uint32_t>(c->v);
    c->widthInBlocks = kau::CeilDiv(paddedWidth_ * h, 8 * static_cast<uint32_t>(hmax_));
    c->heightInBlocks = kau::CeilDiv(paddedHeight_ * v, 8 * static_cast<uint32_t>(vmax_));
    c->mcuWidth = h;
    c->mcuHeight = v;
    c->mcuSampleWidth = h * 8;
    c->lastColumnBlocks = c->widthInBlocks % h == 0 ? h : c->widthInBlocks % h;
    c->lastRowBlocks = c->heightInBlocks % v == 0 ? v : c->heightInBlocks % v;
    c->paddedWidth = c->widthInBlocks * 8;
    c->inputWidth = paddedWidth_ * h / static_cast<uint32_t>(hmax_);
    for (uint32_t i = 0; i < h * v; ++i) {
      if (blocksInMcu_ >= kMaxBlocksInMcu) kau::Throw(kSiteMcuTooLarge);
      mcuBlockComponent_[blocksInMcu_++] = static_cast<int>(c - components_);
    }

    const bool packedToYcc = convert_ == &Encoder::Sampler_PointAtPacked;
    if (planar) {
      c->downsample =
          c->inputWidth == c->paddedWidth ? &Encoder::Downsample_AsTheyStand : &Encoder::Downsample_FullSize;
    } else if (packedToYcc) {
      // The factors are fixed at 2x2, 1x1, 1x1: luma's routine writes all three.
      c->downsample = c == components_ ? &Encoder::Downsample_PackedH2V2 : &Encoder::Downsample_ByLuma;
    } else if (c->h == hmax_ && c->v == vmax_) {
      c->downsample = &Encoder::Downsample_FullSize;
    } else if (c->h * 2 == hmax_ && c->v == vmax_) {
      c->downsample = &Encoder::Downsample_H2V1;
    } else if (c->h * 2 == hmax_ && c->v * 2 == vmax_) {
      c->downsample = &Encoder::Downsample_H2V2;
    } else {
      kau::Throw(kSiteNoDownsampler);
    }

    // Row group: vmax rows at full resolution, long enough for the 2:1
    // filters to read twice the block width. Planar input only points, and
    // so does packed input bound for YCbCr: its kernels convert and
    // downsample in one pass, with no full-resolution row in between.
    const uint32_t groupRows = static_cast<uint32_t>(vmax_);
    c->rowGroup = heap_.AllocateArray<unsigned char*>(groupRows);
    if (!planar && !packedToYcc) {
      const uint32_t groupWidth = c->paddedWidth * static_cast<uint32_t>(hmax_) / h;
      for (uint32_t r = 0; r < groupRows; ++r)
        c->rowGroup[r] = heap_.AllocateArray<unsigned char>(groupWidth);
    }
    const uint32_t blockRowCount = v * 8;
    c->blockRows = heap_.AllocateArray<unsigned char*>(blockRowCount);
    for (uint32_t r = 0; r < blockRowCount; ++r) {
      c->blockRows[r] = heap_.AllocateArray<unsigned char>(c->paddedWidth);
    }
  }
  mcuBlocks_ = heap_.AllocateArray<Block>(static_cast<uint32_t>(blocksInMcu_));
  rowGroupRoutine_ = &Encoder::Sampler_RowGroupDone;
}

void Encoder::Sampler_ConvertRGB(const unsigned char* in) {
  unsigned char* r = components_[0].rowGroup[rowsInGroup_];
  unsigned char* g = components_[1].rowGroup[rowsInGroup_];
  unsigned char* b = components_[2].rowGroup[rowsInGroup_];
  for (uint32_t x = 0; x < paddedWidth_; ++x, in += 4) {
    r[x] = in[0];
    g[x] = in[1];
    b[x] = in[2];
  }
}

void Encoder::Sampler_PointAtPacked(const unsigned char* in) {
  // The rows are only read; the row group is shared with the converting paths.
  for (Component* c = components_; c != componentsEnd_; ++c)
    c->rowGroup[rowsInGroup_] = const_cast<unsigned char*>(in);
}

void Encoder::Sampler_PointAtPlanes(const unsigned char*) {
  for (Component* c = components_; c != componentsEnd_; ++c) {
    c->rowGroup[rowsInGroup_] = c->planeRow;
    // A plane with fewer rows than the group moves on every vmax / v rows.
    if ((rowsInGroup_ + 1) % (vmax_ / c->v) == 0) c->planeRow += c->planeStride;
  }
}

void Encoder::Sampler_RowGroupDone() {
  if (rowsRead_ == paddedHeight_ && rowsInGroup_ < vmax_) {
    for (Component* c = components_; c != componentsEnd_; ++c) {
      for (int r = rowsInGroup_; r < vmax_; ++r) c->rowGroup[r] = c->rowGroup[rowsInGroup_ - 1];
    }
    rowsInGroup_ = vmax_;
  }
  if (rowsInGroup_ == vmax_) {
    for (Component* c = components_; c != componentsEnd_; ++c) (this->*(c->downsample))(c);
    rowsInGroup_ = 0;
    ++groupsDone_;
  }
}

void Encoder::Sampler_FillOutRows() {
  groupsDone_ = 0;
  while (groupsDone_ < 8 && rowsRead_ < paddedHeight_) {
    (this->*convert_)(input_);
    input_ += inputRowBytes_;
    ++rowsRead_;
    ++rowsInGroup_;
    (this->*rowGroupRoutine_)();
  }
  if (groupsDone_ > 0 && groupsDone_ < 8) {
    // The picture ended inside this MCU row: repeat its last row downwards.
    for (Component* c = components_; c != componentsEnd_; ++c) {
      for (int r = c->v * groupsDone_; r < c->v * 8; ++r) c->blockRows[r] = c->blockRows[r - 1];
    }
  }
}

void Encoder::Downsample_FullSize(Component* c) {
  const int base = groupsDone_ * c->v;
  for (int k = 0; k < c->v; ++k) {
    const unsigned char* in = c->rowGroup[k];
    unsigned char* out = c->blockRows[base + k];
    kau::mem::Copy8(out, in, c->inputWidth);
    const unsigned char last = out[c->inputWidth - 1];
    for (uint32_t x = c->inputWidth; x < c->paddedWidth; ++x) out[x] = last;
  }
}

void Encoder::Downsample_AsTheyStand(Component* c) {
  const int base = groupsDone_ * c->v;
  for (int k = 0; k < c->v; ++k) c->blockRows[base + k] = c->rowGroup[k];
}

namespace {
// Repeats the last of `width` samples up to `extended`.
inline void ExtendRow(unsigned char* row, uint32_t width, uint32_t extended) {
  const unsigned char last = row[width - 1];
  for (uint32_t x = width; x < extended; ++x) row[x] = last;
}
}  // namespace

void Encoder::Downsample_H2V1(Component* c) {
  const int base = groupsDone_ * c->v;
  const uint32_t outWidth = c->paddedWidth;
  for (int r = 0; r < vmax_; ++r) ExtendRow(c->rowGroup[r], paddedWidth_, outWidth * 2);
  for (int k = 0; k < c->v; ++k) {
    const unsigned char* in = c->rowGroup[k];
    unsigned char* out = c->blockRows[base + k];
    for (uint32_t i = 0; i < outWidth; ++i) {
      out[i] = static_cast<unsigned char>((in[2 * i] + in[2 * i + 1] + static_cast<int>(i & 1)) >> 1);
    }
  }
}

void Encoder::Downsample_H2V2(Component* c) {
  const int base = groupsDone_ * c->v;
  const uint32_t outWidth = c->paddedWidth;
  for (int r = 0; r < vmax_; ++r) ExtendRow(c->rowGroup[r], paddedWidth_, outWidth * 2);
  for (int k = 0; k < c->v; ++k) {
    const unsigned char* a = c->rowGroup[2 * k];
    const unsigned char* b = c->rowGroup[2 * k + 1];
    unsigned char* out = c->blockRows[base + k];
    for (uint32_t i = 0; i < outWidth; ++i) {
      int bias = 1 + static_cast<int>(i & 1);
      out[i] = static_cast<unsigned char>((a[2 * i] + a[2 * i + 1] + b[2 * i] + b[2 * i + 1] + bias) >> 2);
    }
  }
}

void Encoder::Downsample_PackedH2V2(Component*) {
  // Luma of the row pair and the chroma squares in one pass over the pixels.
  Component* c = components_;
  const int group = groupsDone_;
  const YccRows rows{{c[0].rowGroup[0], c[0].rowGroup[1]},
                     paddedWidth_,
                     c[0].paddedWidth,
                     c[1].paddedWidth,
                     {c[0].blockRows[2 * group], c[0].blockRows[2 * group + 1]},
                     c[1].blockRows[group],
                     c[2].blockRows[group]};
  Kernels_Active().yccRows(rows);
}

void Encoder::Downsample_ByLuma(Component*) {}

namespace {

inline int YccOf(const unsigned char* p, const YccWeights& w) {
  return (w.r * p[0] + w.g * p[1] + w.b * p[2] + w.bias) >> 16;
}

}  // namespace

void Sample_YccRowsFrom(const YccRows& rows, uint32_t x) {
  const uint32_t last = rows.width - 1;
  const auto pixel = [last](const unsigned char* row, uint32_t i) { return row + 4 * (i < last ? i : last); };
  for (int k = 0; k < 2; ++k) {
    for (uint32_t i = x; i < rows.yWidth; ++i) {
      rows.y[k][i] = static_cast<unsigned char>(YccOf(pixel(rows.in[k], i), kYccWeights[0]));
    }
  }
  unsigned char* out[3] = {nullptr, rows.cb, rows.cr};
  for (uint32_t i = x / 2; i < rows.cWidth; ++i) {
    const unsigned char *p0 = pixel(rows.in[0], 2 * i), *p1 = pixel(rows.in[0], 2 * i + 1);
    const unsigned char *q0 = pixel(rows.in[1], 2 * i), *q1 = pixel(rows.in[1], 2 * i + 1);
    for (int ch = 1; ch < 3; ++ch) {
      const YccWeights& w = kYccWeights[ch];
      const int sum = YccOf(p0, w) + YccOf(p1, w) + YccOf(q0, w) + YccOf(q1, w);
      out[ch][i] = static_cast<unsigned char>((sum + 1 + static_cast<int>(i & 1)) >> 2);
    }
  }
}

void Sample_YccRows(const YccRows& rows) { Sample_YccRowsFrom(rows, 0); }

}  // namespace kje
