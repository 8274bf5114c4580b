#include "kiuscale.h"

namespace kiu {
namespace {

constexpr const char* kSource = "common/kiu/kiuscale";

// Largest width or height accepted, as the decoder's own output limit.
constexpr uint32_t kMaxSide = 0x3FFFFFFF;

// One source sample of a destination sample: its byte offset and weight.
struct Contribution {
  uint32_t offset;
  float weight;
};

// The lists of all destination indices of one direction, back to back:
// list i is entries[start[i]] up to entries[start[i + 1]].
struct ContributionTable {
  const uint32_t* start;
  const Contribution* entries;
  const uint32_t* centre;  // byte offset of each list's centre sample
};

inline float Bell(float t) {
  if (t < 0.0f) t = -t;
  if (t < 0.5f) return 0.75f - t * t;
  if (t < 1.5f) {
    float d = t - 1.5f;
    return 0.5f * (d * d);
  }
  return 0.0f;
}

// Filter geometry of one direction, source size S to destination size D.
class Direction {
 public:
  Direction(uint32_t source, uint32_t destination)
      : source_(source),
        destination_(destination),
        reducing_(destination < source),
        scale_(static_cast<float>(source) / static_cast<float>(destination)),
        support_(reducing_ ? 1.5f * static_cast<float>(source) / static_cast<float>(destination) : 1.5f) {}

  // The centre is a whole source index: no half-pixel offset.
  uint32_t Centre(uint32_t i) const { return static_cast<uint32_t>(uint64_t{i} * source_ / destination_); }

  void Bounds(uint32_t i, int64_t* left, int64_t* right) const {
    float centre = static_cast<float>(Centre(i));
    float x = centre - support_;
    float y = centre + support_;
    *left = x >= 0.0f ? static_cast<int64_t>(x + 1.0f) : static_cast<int64_t>(x);
    *right = y >= 0.0f ? static_cast<int64_t>(y) : static_cast<int64_t>(y - 1.0f);
  }

  float Weight(uint32_t i, int64_t j) const {
    float distance = static_cast<float>(Centre(i)) - static_cast<float>(j);
    return reducing_ ? Bell(distance / scale_) / scale_ : Bell(distance);
  }

  // Mirrors indices outside the image back into it: -1 -> 0, S -> S - 1.
  uint32_t Fold(int64_t j) const {
    if (j < 0) j = -j - 1;
    if (j >= source_) j = source_ - 1 - j % source_;
    return static_cast<uint32_t>(j);
  }

  uint32_t destination() const { return destination_; }

 private:
  int64_t source_;
  uint32_t destination_;
  bool reducing_;
  float scale_;
  float support_;
};

constexpr kau::Fault kSiteTooManyContributions{kSource, 88, kau::Category::kOverLimit,
                                               "a resample beyond 32-bit tables"};

// Weights are left unnormalised on purpose; see RoundSample for why uniform
// areas still come out exact.
ContributionTable BuildContributions(const Direction& d, uint32_t step, kau::mem::Heap& heap) {
  const uint32_t n = d.destination();
  uint32_t* start = heap.AllocateArray<uint32_t>(n + 1);
  uint32_t* centre = heap.AllocateArray<uint32_t>(n);
  uint64_t total = 0;
  for (uint32_t i = 0; i < n; ++i) {
    int64_t left, right;
    d.Bounds(i, &left, &right);
    start[i] = static_cast<uint32_t>(total);
    total += static_cast<uint64_t>(right - left + 1);
    if (total > UINT32_MAX / sizeof(Contribution)) kau::Throw(kSiteTooManyContributions);
    centre[i] = d.Centre(i) * step;
  }
  start[n] = static_cast<uint32_t>(total);
  Contribution* entries = heap.AllocateArray<Contribution>(static_cast<uint32_t>(total));
  Contribution* e = entries;
  for (uint32_t i = 0; i < n; ++i) {
    int64_t left, right;
    d.Bounds(i, &left, &right);
    for (int64_t j = left; j <= right; ++j, ++e) {
      e->offset = d.Fold(j) * step;
      e->weight = d.Weight(i, j);
    }
  }
  return {start, entries, centre};
}

// Half up, within 0..255.
inline unsigned char RoundSample(float sum) {
  if (sum <= 0.0f) return 0;
  if (sum >= 255.0f) return 255;
  int whole = static_cast<int>(sum);
  if (sum - static_cast<float>(whole) >= 0.5f) ++whole;
  return static_cast<unsigned char>(whole > 255 ? 255 : whole);
}

// Weighted sum of the listed samples, per channel. Where all listed samples
// of a channel are equal the result is that value exactly, so uniform areas
// survive the unnormalised weights.
template <int kChannels>
inline void Filter(const unsigned char* base, const Contribution* p, const Contribution* end,
                   unsigned char* out) {
  unsigned char first[kChannels];
  float sum[kChannels];
  bool same[kChannels];
  for (int c = 0; c < kChannels; ++c) {
    first[c] = base[p->offset + c];
    sum[c] = 0.0f;
    same[c] = true;
  }
  for (; p != end; ++p) {
    const unsigned char* px = base + p->offset;
    const float w = p->weight;
    for (int c = 0; c < kChannels; ++c) {
      same[c] = same[c] && px[c] == first[c];
      sum[c] += w * static_cast<float>(px[c]);
    }
  }
  for (int c = 0; c < kChannels; ++c) out[c] = same[c] ? first[c] : RoundSample(sum[c]);
}

// Bytes of a w x h picture of `step` bytes per pixel, within 32 bits.
constexpr kau::Fault kSiteTooLarge{kSource, 164, kau::Category::kOverLimit,
                                   "a picture beyond 32 bits of bytes"};
inline uint32_t PictureBytes(uint32_t w, uint32_t h, uint32_t step) {
  uint64_t bytes = uint64_t{w} * h * step;
  if (bytes > UINT32_MAX) kau::Throw(kSiteTooLarge);
  return static_cast<uint32_t>(bytes);
}

// Resizes kFiltered channels of pixels kStep bytes apart; a fourth byte (when
// kStep exceeds kFiltered) is copied from the centre source pixel. Both
// passes walk rows left to right: the horizontal one filters each source row
// once into a ring of destination-width rows (as many as one vertical list
// spans; the lists move down monotonically), the vertical one accumulates
// whole rows in list order, which adds each sample's terms in the same order
// as a sum taken sample by sample, so every result bit is the same.
template <int kFiltered, int kStep>
void Resample(const unsigned char* src, uint32_t srcWidth, uint32_t srcHeight, unsigned char* dst,
              uint32_t dstWidth, uint32_t dstHeight, kau::mem::Heap& heap) {
  const ContributionTable across = BuildContributions(Direction(srcWidth, dstWidth), kStep, heap);
  const ContributionTable down = BuildContributions(Direction(srcHeight, dstHeight), 1, heap);
  // The ring holds the last `span` rows filtered: enough for every list's
  // lowest row and the highest row any list so far has needed.
  uint32_t span = 1, highest = 0;
  for (uint32_t r = 0; r < dstHeight; ++r) {
    uint32_t lowest = UINT32_MAX;
    for (uint32_t i = down.start[r]; i < down.start[r + 1]; ++i) {
      const uint32_t j = down.entries[i].offset;
      lowest = j < lowest ? j : lowest;
      highest = j > highest ? j : highest;
    }
    if (lowest <= highest && highest - lowest + 1 > span) span = highest - lowest + 1;
  }
  const uint32_t rowBytes = PictureBytes(dstWidth, 1, kStep);
  unsigned char* ring = heap.AllocateArray<unsigned char>(PictureBytes(rowBytes, span, 1));
  float* sum = heap.AllocateArray<float>(rowBytes);
  bool* same = heap.AllocateArray<bool>(rowBytes);
  const size_t srcStride = size_t{srcWidth} * kStep;
  uint32_t filtered = 0;  // source rows filtered so far
  auto row = [&](uint32_t j) {
    unsigned char* out = ring + size_t{j % span} * rowBytes;
    for (; filtered <= j; ++filtered) {
      const unsigned char* line = src + filtered * srcStride;
      unsigned char* t = ring + size_t{filtered % span} * rowBytes;
      for (uint32_t k = 0; k < dstWidth; ++k, t += kStep) {
        Filter<kFiltered>(line, across.entries + across.start[k], across.entries + across.start[k + 1], t);
        if (kStep > kFiltered) t[kStep - 1] = line[across.centre[k] + kStep - 1];
      }
    }
    return out;
  };

  unsigned char* out = dst;
  for (uint32_t r = 0; r < dstHeight; ++r, out += rowBytes) {
    const Contribution* p = down.entries + down.start[r];
    const Contribution* end = down.entries + down.start[r + 1];
    for (const Contribution* q = p; q != end; ++q) row(q->offset);  // the list's rows, before any is read
    const unsigned char* first = row(p->offset);
    for (uint32_t i = 0; i < rowBytes; ++i) {
      sum[i] = 0.0f;
      same[i] = true;
    }
    for (; p != end; ++p) {
      const unsigned char* line = row(p->offset);
      const float w = p->weight;
      for (uint32_t i = 0; i < rowBytes; ++i) {
        same[i] = same[i] && line[i] == first[i];
        sum[i] += w * static_cast<float>(line[i]);
      }
    }
    for (uint32_t i = 0; i < rowBytes; ++i) out[i] = same[i] ? first[i] : RoundSample(sum[i]);
    if (kStep > kFiltered) {
      const unsigned char* centre = row(down.centre[r]);
      for (uint32_t i = kStep - 1; i < rowBytes; i += kStep) out[i] = centre[i];
    }
  }
}

constexpr kau::Fault kSiteNullData{kSource, 160, kau::Category::kBadArgument, "no pixels to scale"};
constexpr kau::Fault kSiteBadSize{kSource, 162, kau::Category::kBadArgument,
                                  "a picture side of 0 or above the largest supported"};
inline uint32_t Side(unsigned long n) {
  if (n == 0 || n > kMaxSide) kau::Throw(kSiteBadSize);
  return static_cast<uint32_t>(n);
}

constexpr kau::Fault kSiteOutputNull{kSource, 180, kau::Category::kOutOfMemory,
                                     "no memory for the scaled picture"};

template <int kFiltered, int kStep>
unsigned char* ScaleImage(unsigned char*& data, unsigned long& width, unsigned long& height,
                          unsigned long dstWidth, unsigned long dstHeight, kau::mem::Heap& heap,
                          const kau::Site& catchSite) {
  unsigned char* out = nullptr;
  try {
    if (data == nullptr) kau::Throw(kSiteNullData);
    const uint32_t sw = Side(width), sh = Side(height), dw = Side(dstWidth), dh = Side(dstHeight);
    PictureBytes(sw, sh, kStep);
    out = static_cast<unsigned char*>(kau::mem::New(PictureBytes(dw, dh, kStep)));
    if (out == nullptr) kau::Throw(kSiteOutputNull);
    Resample<kFiltered, kStep>(data, sw, sh, out, dw, dh, heap);
    data = out;
    width = dw;
    height = dh;
    return out;
  } catch (...) {
    kau::ReportCurrentException(catchSite);
    kau::mem::Delete(out);
    data = nullptr;
    return nullptr;
  }
}

}  // namespace

unsigned char* ScaleComponent(unsigned char*& data, unsigned long srcWidth, unsigned long srcHeight,
                              unsigned long dstWidth, unsigned long dstHeight, kau::mem::Heap& heap) {
  constexpr kau::Site kSiteCatch{kSource, 210};
  try {
    if (data == nullptr) kau::Throw(kSiteNullData);
    const uint32_t sw = Side(srcWidth), sh = Side(srcHeight), dw = Side(dstWidth), dh = Side(dstHeight);
    PictureBytes(sw, sh, 1);
    unsigned char* out = heap.AllocateArray<unsigned char>(PictureBytes(dw, dh, 1));
    Resample<1, 1>(data, sw, sh, out, dw, dh, heap);
    data = out;
    return out;
  } catch (...) {
    kau::ReportCurrentException(kSiteCatch);
    data = nullptr;
    return nullptr;
  }
}

unsigned char* ScaleImage24bpp(unsigned char*& data, unsigned long& width, unsigned long& height,
                               unsigned long dstWidth, unsigned long dstHeight, kau::mem::Heap& heap) {
  constexpr kau::Site kSiteCatch{kSource, 230};
  return ScaleImage<3, 3>(data, width, height, dstWidth, dstHeight, heap, kSiteCatch);
}

unsigned char* ScaleImageRGB(unsigned char*& data, unsigned long& width, unsigned long& height,
                             unsigned long dstWidth, unsigned long dstHeight, kau::mem::Heap& heap) {
  constexpr kau::Site kSiteCatch{kSource, 240};
  return ScaleImage<3, 4>(data, width, height, dstWidth, dstHeight, heap, kSiteCatch);
}

}  // namespace kiu
