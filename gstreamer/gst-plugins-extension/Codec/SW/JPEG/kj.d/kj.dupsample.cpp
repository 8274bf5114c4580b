// Upsampling and pixel output. One output plan per image says how the
// component rows become the caller's pixels: chroma expanded by plain
// repetition and converted row by row, or, for the common interleaved
// layouts, converted straight from the inverse-DCT rows by the subsampled
// converters, which give the same pixels.
#include "kj.dupsample.h"

#include "kiu/kiu.h"
#include "kj.dkernels.h"

namespace kjd {
namespace {

constexpr kau::Fault kSiteFusedYuvLayout{kSourceUpsample, 397, kau::Category::kInternal,
                                         "the output plan does not fit the sampling"};
constexpr kau::Fault kSiteFusedRgbaLayout{kSourceUpsample, 458, kau::Category::kInternal,
                                          "the output plan does not fit the colour model"};
constexpr kau::Fault kSiteScaledSize{kSourceUpsample, 572, kau::Category::kInternal,
                                     "a DCT scale other than 1, 2, 4 or 8"};
constexpr kau::Fault kSiteAdobeTransform{kSourceUpsample, 596, kau::Category::kUnsupported,
                                         "the Adobe colour transform does not fit three components"};
constexpr kau::Fault kSiteComponentCount{kSourceUpsample, 623, kau::Category::kUnsupported,
                                         "the number of components is not 1, 3 or 4"};
constexpr kau::Fault kSiteRatio{kSourceUpsample, 781, kau::Category::kUnsupported,
                                "this sampling ratio is not supported"};

const ConvertFn kYuvToRgb = static_cast<ConvertFn>(kiu::ConvertYUVtoRGB);

// Each input sample repeated `h` times until `width` samples are written.
inline void RepeatRow(const unsigned char* in, unsigned char* out, uint32_t width, uint32_t h) {
  for (uint32_t x = 0, i = 0; x < width; ++i)
    for (uint32_t k = 0; k < h && x < width; ++k) out[x++] = in[i];
}

// Eight input samples per step, then the rest.
inline void DoubleRow(const unsigned char* in, unsigned char* out, uint32_t width) {
  uint32_t x = 0;
  for (; x + 16 <= width; x += 16, in += 8) {
    for (int k = 0; k < 8; ++k) out[x + 2 * k] = out[x + 2 * k + 1] = in[k];
  }
  for (; x < width; x += 2, ++in) {
    out[x] = *in;
    if (x + 1 < width) out[x + 1] = *in;
  }
}

enum class Layout { k111, k211, k420, kOther };

// The YCbCr sampling layouts that have a merged path, from the first three
// components (Y, Cb, Cr in frame order).
Layout LayoutOf(const Component* c) {
  if (!(c[1].h == 1 && c[1].v == 1 && c[2].h == 1 && c[2].v == 1)) return Layout::kOther;
  if (c[0].h == 1 && c[0].v == 1) return Layout::k111;
  if (c[0].h == 2 && c[0].v == 1) return Layout::k211;
  if (c[0].h == 2 && c[0].v == 2) return Layout::k420;
  return Layout::kOther;
}

using Plan = Decoder::OutputPlan;

// The plan for a YCbCr image in `layout`; kReplicated or kYuvOfRgb when no
// merged or raw path fits.
Plan YCbCrPlan(Decoder::OutputKind kind, Layout layout) {
  if (kind == Decoder::OutputKind::kRgba) {
    switch (layout) {
      case Layout::k111:
        return Plan::kMerged111;
      case Layout::k211:
        return Plan::kMerged211;
      case Layout::k420:
        return Plan::kMerged420;
      default:
        return Plan::kReplicated;
    }
  }
  // YUV output keeps 4:4:4 and 4:2:2 samples as they are.
  if (layout == Layout::k111) return Plan::kRawYuv111;
  if (layout == Layout::k211) return Plan::kRawYuv211;
  if (layout == Layout::k420 && kind == Decoder::OutputKind::kI420) return Plan::kI420Merged420;
  return Plan::kYuvOfRgb;
}

}  // namespace

void Decoder::Upsample_SelectFormat() {
  uint8_t colorModel = 0;
  switch (componentCount) {
    case 3: {
      const Component* c = components;
      if (markers.jfifSeen) {
        colorModel = kYCbCr;
      } else if (markers.adobeSeen) {
        if (markers.adobeTransform == 0)
          colorModel = kRGB;
        else if (markers.adobeTransform == 1)
          colorModel = kYCbCr;
        else
          kau::Throw(kSiteAdobeTransform);
      } else if (c[0].id == 'R' && c[1].id == 'G' && c[2].id == 'B') {
        colorModel = kRGB;
      } else {
        colorModel = kYCbCr;
      }
      break;
    }
    case 4:
      colorModel = markers.adobeSeen && markers.adobeTransform != 0 ? kYCCK : kCMYK;
      break;
    case 1:
      colorModel = kGrey;
      break;
    default:
      kau::Throw(kSiteComponentCount);
  }
  output.colorModel = colorModel;
  switch (colorModel) {
    case kRGB:
      output.converter = kiu::ConvertRGBtoRGB;
      break;
    case kYCCK:
      output.converter = kiu::ConvertYCCKtoRGB;
      break;
    case kCMYK:
      output.converter = kiu::ConvertCMYKtoRGB;
      break;
    case kGrey:
      output.converter = kiu::ConvertGrayToRGB;
      break;
    default:
      output.converter = kYuvToRgb;
      break;
  }
}

void Decoder::Upsample_FindComponentDimensions(Component* component, unsigned long size) {
  if (size != 1 && size != 2 && size != 4 && size != 8) kau::Throw(kSiteScaledSize);
  component->dctScaledSize = static_cast<uint32_t>(size);
  component->SelectDctTable();
}

void Decoder::Upsample_Init(bool rescale) {
  Upsample_SelectFormat();
  const uint32_t S = dctScaledSize;
  const OutputKind kind = output.kind;
  Plan& plan = output.plan;
  if (rescale)
    plan = Plan::kResampled;
  else if (output.colorModel == kYCbCr)
    plan = YCbCrPlan(kind, LayoutOf(components));
  else
    plan = kind == OutputKind::kRgba ? Plan::kReplicated : Plan::kYuvOfRgb;
  if (plan == Plan::kYuvOfRgb) output.rgbaRow = heap.AllocateArray<unsigned char>(outputWidth * 4);
  if (!output.Upsampled()) {
    Component* c = components;
    for (int i = 0; i < 3; ++i) {
      Upsample_FindComponentDimensions(&c[i], S);
      c[i].rowsPerGroup = 1;
      c[i].upsample = nullptr;
    }
    if (plan == Plan::kMerged420 || plan == Plan::kI420Merged420) c[0].rowsPerGroup = 2;
    return;
  }
  const uint32_t rounded = kau::RoundUp(outputWidth, maxH);
  for (Component* c = components; c != componentsEnd; ++c) {
    // Decode chroma at a larger DCT size instead of repeating it, where the
    // sampling allows.
    uint32_t s = S;
    while (s < 8 && 2 * c->h * s <= maxH * S && 2 * c->v * s <= maxV * S) s *= 2;
    Upsample_FindComponentDimensions(c, s);
    const uint32_t hIn = c->h * s / S;
    const uint32_t vIn = c->v * s / S;
    c->rowsPerGroup = vIn;
    c->outputWidth = rounded;
    c->hRepeat = c->vRepeat = 1;
    if (hIn == maxH && vIn == maxV) {
      c->upsample = nullptr;
      continue;
    }
    if (maxH == 2 * hIn && vIn == maxV) {
      c->upsample = Upsample_H2V1;
    } else if (maxH == 2 * hIn && maxV == 2 * vIn) {
      c->upsample = Upsample_H2V2;
    } else {
      if (hIn == 0 || vIn == 0 || maxH % hIn != 0 || maxV % vIn != 0) kau::Throw(kSiteRatio);
      c->upsample = Upsample_HandleAnyIntegralRatios;
      c->hRepeat = static_cast<uint8_t>(maxH / hIn);
      c->vRepeat = static_cast<uint8_t>(maxV / vIn);
    }
    if (uint64_t{maxV} * rounded > UINT32_MAX) kau::Throw(kau::kSiteRoundUp);
    unsigned char** rows = heap.AllocateArray<unsigned char*>(maxV);
    unsigned char* block = heap.AllocateZeroedArray<unsigned char>(maxV * rounded);
    for (uint32_t i = 0; i < maxV; ++i) rows[i] = block + i * rounded;
    output.upsampledRows[c->index] = rows;
  }
}

void Decoder::Upsample_H2V1(Decoder*, Component* c, unsigned char** input, unsigned char**& output) {
  for (uint32_t r = 0; r < c->rowsPerGroup; ++r) DoubleRow(input[r], output[r], c->outputWidth);
}

void Decoder::Upsample_H2V2(Decoder*, Component* c, unsigned char** input, unsigned char**& output) {
  for (uint32_t r = 0; r < c->rowsPerGroup; ++r) {
    DoubleRow(input[r], output[2 * r], c->outputWidth);
    kau::mem::Copy8(output[2 * r + 1], output[2 * r], c->outputWidth);
  }
}

void Decoder::Upsample_HandleAnyIntegralRatios(Decoder*, Component* c, unsigned char** input,
                                               unsigned char**& output) {
  const uint32_t v = c->vRepeat;
  for (uint32_t r = 0; r < c->rowsPerGroup; ++r) {
    unsigned char* first = output[r * v];
    RepeatRow(input[r], first, c->outputWidth, c->hRepeat);
    for (uint32_t k = 1; k < v; ++k) kau::mem::Copy8(output[r * v + k], first, c->outputWidth);
  }
}

void Decoder::Upsample_HalfHandleAnyIntegralRatios(Decoder*, Component* c, unsigned char** input,
                                                   unsigned char**& output) {
  const uint32_t v = c->vRepeat;
  const uint32_t width = c->outputWidth / 2;
  for (uint32_t r = 0; r < c->rowsPerGroup / 2; ++r) {
    unsigned char* first = output[r * v];
    RepeatRow(input[r], first, width, c->hRepeat);
    for (uint32_t k = 1; k < v; ++k) kau::mem::Copy8(output[r * v + k], first, width);
  }
}

unsigned char* Decoder::Upsample_ConvertRowsInGroup(unsigned char* output, unsigned char* end,
                                                    unsigned long stride) {
  const uint32_t n = this->output.rowGroupRows;
  if (n < 1 || n > 4) return output;
  for (uint32_t i = 0; i < n && output < end; ++i, output += stride)
    this->output.converter(outputWidth, this->output.upsampledRows, i, output);
  return output;
}

namespace {

// Takes the image's rows in order: packed rows go straight into the
// caller's buffer; for I420, rows of packed Y, U, V go through two scratch
// rows, each pair becoming two luma rows and one row of averaged chroma (an
// odd last row is dropped).
class RowSink {
 public:
  RowSink(const Decoder::OutputTarget& t, unsigned char* scratch, uint32_t scratchBytes)
      : t_(t), next_(t.pixels), i420_(t.planes[0] != nullptr) {
    scratch_[0] = scratch;
    // Packed output has no scratch rows.
    scratch_[1] = scratch != nullptr ? scratch + scratchBytes : nullptr;
  }
  bool I420() const { return i420_; }
  // No further row can land anywhere.
  bool Full() const { return i420_ ? row_ >= t_.height : next_ >= t_.end; }
  unsigned char* Row() { return i420_ ? scratch_[row_ & 1] : next_; }
  void Done() {
    if (!i420_) {
      next_ += t_.stride;
      return;
    }
    if ((row_ & 1) && row_ < t_.height) {
      unsigned char* y0 = t_.planes[0] + uint64_t{row_ - 1} * t_.strides[0];
      const uint64_t c = row_ / 2;
      kiu::PackedYUVtoI420(t_.width, scratch_[0], scratch_[1], y0, y0 + t_.strides[0],
                           t_.planes[1] + c * t_.strides[1], t_.planes[2] + c * t_.strides[2]);
    }
    ++row_;
  }
  // I420 only: the next two rows, written by the caller into the planes.
  uint32_t TakePair() {
    const uint32_t r = row_;
    row_ += 2;
    return r;
  }
  unsigned char* Plane(int i, uint32_t row) const { return t_.planes[i] + uint64_t{row} * t_.strides[i]; }

 private:
  const Decoder::OutputTarget& t_;
  unsigned char* next_;
  unsigned char* scratch_[2] = {};
  uint32_t row_ = 0;
  bool i420_;
};

}  // namespace

void Decoder::Upsample_ProcessSingleRows(const OutputTarget& target) {
  const Plan plan = output.plan;
  // Guards of the plan against the image; Upsample_Init never breaks them.
  const bool raw = plan == Plan::kRawYuv111 || plan == Plan::kRawYuv211;
  if (raw && LayoutOf(components) != (plan == Plan::kRawYuv111 ? Layout::k111 : Layout::k211))
    kau::Throw(kSiteFusedYuvLayout);
  if (!raw && !output.Upsampled() && output.colorModel != kYCbCr) kau::Throw(kSiteFusedRgbaLayout);

  // One iMCU row of inverse-DCT rows per component, as wide as whole MCUs.
  unsigned char** samples[4] = {};
  const uint32_t mcuColumns = kau::CeilDiv(imageWidth, 8 * maxH);
  for (Component* c = components; c != componentsEnd; ++c) {
    const uint32_t s = c->dctScaledSize;
    const uint64_t width = uint64_t{mcuColumns} * c->h * s;
    const uint32_t rows = c->v * s;
    if (width * rows > UINT32_MAX) kau::Throw(kau::kSiteRoundUp);
    unsigned char* block = heap.AllocateZeroedArray<unsigned char>(static_cast<uint32_t>(width * rows));
    unsigned char** pointers = heap.AllocateArray<unsigned char*>(rows);
    for (uint32_t r = 0; r < rows; ++r) pointers[r] = block + r * width;
    samples[c->index] = pointers;
  }
  const uint32_t S = dctScaledSize;
  const bool i420 = target.planes[0] != nullptr;
  // Raw samples become I420 straight from row pairs when an iMCU row holds
  // whole pairs; otherwise they go through packed rows.
  const bool rawPairs = i420 && raw && S % 2 == 0;
  unsigned char* scratch = nullptr;
  if (i420 && plan != Plan::kI420Merged420 && !rawPairs)
    scratch = heap.AllocateArray<unsigned char>(outputWidth * 6);
  RowSink sink(target, scratch, outputWidth * 3);

  const unsigned long W = outputWidth;
  I420Rows* const toI420 = Kernels_Active().yuv420ToI420;
  I420ChromaRows* const averageChroma = Kernels_Active().i420Chroma;
  const unsigned char alpha = alphaValue;
  const Kernels& rgba = Kernels_Active();
  // Every iMCU row is decoded even when an I420 picture drops the last row,
  // so that a fault there still fails the decode.
  for (int done = 0; !done && (i420 || !sink.Full());) {
    done = decompress(this, samples);
    switch (plan) {
      case Plan::kReplicated:
      case Plan::kResampled:
      case Plan::kYuvOfRgb:
        output.rowGroupRows = maxV;
        for (uint32_t g = 0; g < S && !sink.Full(); ++g) {
          for (Component* c = components; c != componentsEnd; ++c) {
            unsigned char** in = samples[c->index] + g * c->rowsPerGroup;
            if (c->upsample != nullptr)
              c->upsample(this, c, in, output.upsampledRows[c->index]);
            else
              output.upsampledRows[c->index] = in;
          }
          if (plan != Plan::kYuvOfRgb) {
            // 4-byte rows, packed output only: the group converts itself.
            Upsample_ConvertRowsInGroup(sink.Row(), target.end, target.stride);
            for (uint32_t i = 0; i < maxV && !sink.Full(); ++i) sink.Done();
            continue;
          }
          for (uint32_t i = 0; i < maxV && !sink.Full(); ++i) {
            output.converter(W, output.upsampledRows, i, output.rgbaRow);
            kiu::ConvertRGBtoYUV(W, output.rgbaRow, sink.Row());
            sink.Done();
          }
        }
        break;
      case Plan::kRawYuv111:
      case Plan::kRawYuv211: {
        if (rawPairs) {
          for (uint32_t r = 0; r < S && !sink.Full(); r += 2) {
            const uint32_t y = sink.TakePair();
            kiu::ConvertYUVtoI420(target.width, plan == Plan::kRawYuv211, samples, r, sink.Plane(0, y),
                                  sink.Plane(0, y + 1), sink.Plane(1, y / 2), sink.Plane(2, y / 2),
                                  averageChroma);
          }
          break;
        }
        const ConvertFn convert = plan == Plan::kRawYuv111 ? kiu::ConvertYUVtoYUV : kiu::ConvertYUV211toYUV;
        for (uint32_t r = 0; r < S && !sink.Full(); ++r) {
          convert(W, samples, r, sink.Row());
          sink.Done();
        }
        break;
      }
      case Plan::kMerged111:
        for (uint32_t r = 0; r < S && !sink.Full(); ++r) {
          rgba.rgba111(W, samples[0][r], samples[1][r], samples[2][r], alpha, sink.Row());
          sink.Done();
        }
        break;
      case Plan::kMerged211:
        for (uint32_t r = 0; r < S && !sink.Full(); ++r) {
          rgba.rgba211(W, samples[0][r], nullptr, samples[1][r], samples[2][r], alpha, sink.Row(), nullptr);
          sink.Done();
        }
        break;
      case Plan::kMerged420:
        // Pairs of rows share a chroma row; an odd last row goes alone.
        for (uint32_t r = 0; r < S && !sink.Full(); ++r) {
          unsigned char* at = sink.Row();
          const bool pair = static_cast<unsigned long>(target.end - at) >= 2 * target.stride;
          rgba.rgba211(W, samples[0][2 * r], pair ? samples[0][2 * r + 1] : nullptr, samples[1][r],
                       samples[2][r], alpha, at, pair ? at + target.stride : nullptr);
          if (pair) sink.Done();
          sink.Done();
        }
        break;
      case Plan::kI420Merged420:
        for (uint32_t r = 0; r < S && !sink.Full(); ++r) {
          const uint32_t y = sink.TakePair();
          toI420(target.width, samples[0][2 * r], samples[0][2 * r + 1], samples[1][r], samples[2][r],
                 sink.Plane(0, y), sink.Plane(0, y + 1), sink.Plane(1, y / 2), sink.Plane(2, y / 2));
        }
        break;
    }
  }
}

}  // namespace kjd
