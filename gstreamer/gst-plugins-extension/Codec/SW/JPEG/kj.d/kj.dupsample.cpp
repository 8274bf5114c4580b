// Upsampling and pixel output. Chroma is expanded by plain repetition; the
// three common interleaved layouts skip the expansion and convert straight
// from the inverse-DCT rows with the subsampled converters, which give the
// same pixels.
#include "kj.dupsample.h"

#include "kiu/kiu.h"

namespace kjd {
namespace {

constexpr kau::Site kSiteFusedYuvLayout{kSourceUpsample, 397};
constexpr kau::Site kSiteFusedRgbaLayout{kSourceUpsample, 458};
constexpr kau::Site kSiteScaledSize{kSourceUpsample, 572};
constexpr kau::Site kSiteAdobeTransform{kSourceUpsample, 596};
constexpr kau::Site kSiteComponentCount{kSourceUpsample, 623};
constexpr kau::Site kSiteRatio{kSourceUpsample, 781};

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

}  // namespace

void Decoder::Upsample_SelectFormat() {
  directYuv = 0;
  switch (componentCount) {
    case 3: {
      const Component* c = components;
      if (jfifSeen) {
        colorModel = kYCbCr;
      } else if (adobeSeen) {
        if (adobeTransform == 0)
          colorModel = kRGB;
        else if (adobeTransform == 1)
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
      colorModel = adobeSeen && adobeTransform != 0 ? kYCCK : kCMYK;
      break;
    case 1:
      colorModel = kGrey;
      break;
    default:
      kau::Throw(kSiteComponentCount);
  }
  switch (colorModel) {
    case kRGB:
      converter = kiu::ConvertRGBtoRGB;
      break;
    case kYCCK:
      converter = kiu::ConvertYCCKtoRGB;
      break;
    case kCMYK:
      converter = kiu::ConvertCMYKtoRGB;
      break;
    case kGrey:
      converter = kiu::ConvertGrayToRGB;
      break;
    default:
      if (yuvWanted && !needsRescale) {
        directYuv = 1;
        converter = kiu::ConvertYUVtoYUV;
      } else {
        converter = kYuvToRgb;
      }
      break;
  }
}

void Decoder::Upsample_FindComponentDimensions(Component* component, unsigned long size) {
  if (size != 1 && size != 2 && size != 4 && size != 8) kau::Throw(kSiteScaledSize);
  component->dctScaledSize = static_cast<uint32_t>(size);
  component->SelectDctTable();
}

void Decoder::Upsample_Init() {
  Upsample_SelectFormat();
  const uint32_t S = dctScaledSize;
  layout111 = layout211 = layout420 = 0;
  fusedRgba = 0;
  if (colorModel == kYCbCr) {
    if (!needsRescale) {
      Component* c = components;
      const bool chroma11 = c[1].h == 1 && c[1].v == 1 && c[2].h == 1 && c[2].v == 1;
      layout111 = chroma11 && c[0].h == 1 && c[0].v == 1;
      layout211 = chroma11 && c[0].h == 2 && c[0].v == 1;
      layout420 = chroma11 && c[0].h == 2 && c[0].v == 2;
      const bool fused = directYuv ? (layout111 || layout211) : (layout111 || layout420);
      if (fused) {
        for (int i = 0; i < 3; ++i) {
          Upsample_FindComponentDimensions(&c[i], S);
          c[i].rowsPerGroup = 1;
          c[i].upsample = nullptr;
        }
        if (!directYuv) {
          if (layout420) c[0].rowsPerGroup = 2;
          fusedRgba = 1;
        }
        return;
      }
    }
    // Every other YCbCr image goes through 4-byte pixels.
    directYuv = 0;
    converter = kYuvToRgb;
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
    upsampledRows[c->index] = rows;
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
  const uint32_t n = rowGroupRows;
  if (n < 1 || n > 4) return output;
  for (uint32_t i = 0; i < n && output < end; ++i, output += stride)
    converter(outputWidth, upsampledRows, i, output);
  return output;
}

unsigned char* Decoder::Upsample_ProcessSingleRows(unsigned char* output, unsigned char* end,
                                                   unsigned long stride) {
  const bool fused = fusedRgba || directYuv;
  if (directYuv && !layout111 && !layout211) kau::Throw(kSiteFusedYuvLayout);
  if (fusedRgba && !layout111 && !layout420) kau::Throw(kSiteFusedRgbaLayout);

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
  const unsigned long W = outputWidth;
  const unsigned char alpha = alphaValue;
  for (int done = 0; !done && output < end;) {
    done = decompress(this, samples);
    if (!fused) {
      rowGroupRows = maxV;
      for (uint32_t g = 0; g < S && output < end; ++g) {
        for (Component* c = components; c != componentsEnd; ++c) {
          unsigned char** in = samples[c->index] + g * c->rowsPerGroup;
          if (c->upsample != nullptr)
            c->upsample(this, c, in, upsampledRows[c->index]);
          else
            upsampledRows[c->index] = in;
        }
        output = Upsample_ConvertRowsInGroup(output, end, stride);
      }
    } else if (directYuv) {
      const ConvertFn convert = layout111 ? kiu::ConvertYUVtoYUV : kiu::ConvertYUV211toYUV;
      for (uint32_t r = 0; r < S && output < end; ++r, output += stride) convert(W, samples, r, output);
    } else if (layout111) {
      for (uint32_t r = 0; r < S && output < end; ++r, output += stride) {
        unsigned char** rows[3] = {samples[0] + r, samples[1] + r, samples[2] + r};
        kiu::ConvertYUV111toRGBA(W, rows, alpha, output);
      }
    } else {
      // Pairs of rows share a chroma row; an odd last row goes alone.
      for (uint32_t r = 0; r < S && output < end; ++r) {
        unsigned char** rows[3] = {samples[0] + 2 * r, samples[1] + r, samples[2] + r};
        if (static_cast<unsigned long>(end - output) >= 2 * stride) {
          kiu::ConvertYUV420toRGBA2(W, rows, alpha, output);
          output += 2 * stride;
        } else {
          kiu::ConvertYUV420toRGBA(W, rows, alpha, output);
          output += stride;
        }
      }
    }
  }
  return output;
}

}  // namespace kjd
