#include "mmstream.h"

#include <cstdlib>

#include "../kau/kau.h"
#include "kiustartup.h"

namespace {

constexpr const char* kSource = "common/kiu/mmstream";
constexpr kau::Site kSitePutAttriCatch{kSource, 262};
constexpr kau::Site kSitePlainCatch{kSource, 471};
constexpr kau::Site kSiteRegistryCatch{kSource, 539};

// Runs a stream operation for a plain function: nothing escapes to C callers.
template <typename R, typename F>
R Guarded(R failure, F&& op) {
  try {
    return op();
  } catch (...) {
    kau::ReportCurrentException(kSitePlainCatch);
    return failure;
  }
}

// Copies a held record's value out to a query record. A negative query
// length takes the buffer's ownership away from the stream.
void CopyOut(MMAttri* held, MMAttri* query) {
  query->value.bits = held->value.bits;
  if (held->tag != MMAttriTagAny) {
    query->length = held->length;
    return;
  }
  int32_t magnitude = held->length < 0 ? -held->length : held->length;
  if (query->length < 0) {
    held->length = magnitude;
    query->length = -magnitude;
  } else {
    query->length = magnitude;
  }
}

}  // namespace

// ---------------------------------------------------------------- base class

MMStream::MMStream(const MMAttri* records, unsigned int count)
    : attributes_(new MMAttri[kMaxAttributes]()), attributeCount_(0) {
  if (records == nullptr) return;
  if (count > kMaxAttributes) count = kMaxAttributes;
  for (unsigned int i = 0; i < count; ++i) attributes_[i] = records[i];
  attributeCount_ = count;
}

MMStream::~MMStream() {
  MMStream::Null();
  for (uint32_t i = 0; i < attributeCount_; ++i) {
    MMAttri& r = attributes_[i];
    if (r.tag == MMAttriTagAny && r.length < 0) MMFree(r.value.pointer);
  }
  delete[] attributes_;
  attributes_ = nullptr;
  attributeCount_ = 0;
}

unsigned int MMStream::Get(void*, unsigned int) { return 0; }
int MMStream::Null() { return 1; }
int MMStream::Play() { return Ready(); }
unsigned int MMStream::Put(const void*, unsigned int) { return 0; }
int MMStream::Ready() { return Null(); }
int MMStream::Seek(long, MMStreamSeekFrom) { return 0; }
int MMStream::Size(unsigned long&) { return 0; }
int MMStream::Tell(unsigned long&) { return 0; }

MMAttri* MMStream::Find(const char* id, MMAttriTag tag) {
  for (uint32_t i = 0; i < attributeCount_; ++i) {
    MMAttri& r = attributes_[i];
    if (r.id == id && (tag == MMAttriTagNone || r.tag == tag)) return &r;
  }
  return nullptr;
}

int MMStream::GetAttri(MMAttri* records, unsigned int count) {
  if (records == nullptr) {
    return static_cast<int>(count != 0 && count < attributeCount_ ? count : attributeCount_);
  }
  if (records[0].id == nullptr) {
    unsigned int n = 0;
    for (; n < attributeCount_ && n < count; ++n) {
      records[n].id = attributes_[n].id;
      records[n].tag = attributes_[n].tag;
      CopyOut(&attributes_[n], &records[n]);
    }
    return static_cast<int>(n);
  }
  int filled = 0;
  for (unsigned int i = 0; i < count; ++i) {
    MMAttri& q = records[i];
    if (q.id == nullptr) {
      q.tag = MMAttriTagNone;
      continue;
    }
    MMAttri* held = Find(q.id, q.tag);
    if (held == nullptr) continue;
    q.tag = held->tag;
    CopyOut(held, &q);
    ++filled;
  }
  return filled;
}

int MMStream::PutAttri(const MMAttri* records, unsigned int count) {
  if (records == nullptr) return GetAttri(nullptr, count);
  int stored = 0;
  try {
    for (unsigned int i = 0; i < count; ++i) {
      const MMAttri& r = records[i];
      if (r.id == nullptr || r.tag == MMAttriTagNone) continue;
      MMAttri* held = Find(r.id, r.tag);
      if (held != nullptr) {
        if (held->tag == MMAttriTagAny && held->length < 0 && held->value.pointer != nullptr) {
          MMFree(held->value.pointer);
        }
        held->value = r.value;
        held->length = r.length;
      } else if (attributeCount_ < kMaxAttributes) {
        attributes_[attributeCount_++] = r;
      } else {
        continue;  // full table: dropped without notice
      }
      ++stored;
    }
  } catch (...) {
    kau::ReportCurrentException(kSitePutAttriCatch);
    return 0;
  }
  return stored;
}

MMAttri* MMStream::AttriGet(const char* id) { return Find(id, MMAttriTagNone); }
MMAttri* MMStream::AttriGetI32(const char* id) { return Find(id, MMAttriTagI32); }
MMAttri* MMStream::AttriGetU32(const char* id) { return Find(id, MMAttriTagU32); }

int MMStream::AttriAnyValid(const MMAttri* record) {
  if (record == nullptr || record->tag != MMAttriTagAny) return 0;
  bool hasValue = record->value.pointer != nullptr;
  return hasValue == (record->length != 0) ? 1 : 0;
}

void* MMStream::AttriAnyPointer(const char* id) {
  for (uint32_t i = 0; i < attributeCount_; ++i) {
    if (attributes_[i].id == id && AttriAnyValid(&attributes_[i])) return attributes_[i].value.pointer;
  }
  return nullptr;
}

const char* MMStream::AttriAnyString(const char* id) {
  MMAttri* r = AttriGet(id);
  if (r == nullptr || r->tag != MMAttriTagAny || r->value.pointer == nullptr || r->length == 0) {
    return nullptr;
  }
  int32_t magnitude = r->length < 0 ? -r->length : r->length;
  const char* text = static_cast<const char*>(r->value.pointer);
  return text[magnitude - 1] == 0 ? text : nullptr;
}

int MMStream::AttriAnyFree(MMAttri* record) {
  if (!AttriAnyValid(record)) return 0;
  if (record->length < 0) MMFree(record->value.pointer);
  record->value.bits = 0;
  record->length = 0;
  return 1;
}

MMAttri* MMStream::AttriPut(const char* id, MMAttriTag tag) {
  MMAttri record;
  if (MMAttriFromTag(&record, id, tag) == nullptr) return nullptr;
  return PutAttri(&record, 1) == 1 ? AttriGet(id) : nullptr;
}

bool MMSeekTarget(uint32_t size, uint32_t position, long offset, MMStreamSeekFrom from, int64_t* target) {
  int64_t off = offset, end = size, at = position;
  switch (from) {
    case MMStreamSeekFromEnd:
      *target = off >= 0 ? end : (end + off < 0 ? 0 : end + off);
      return true;
    case MMStreamSeekFromCurrent:
      *target = off < 0 ? (at + off < 0 ? 0 : at + off) : (at + off > end ? end : at + off);
      return true;
    case MMStreamSeekFromStart:
      *target = off < 0 ? off : (off > end ? end : off);  // no lower clamp, on purpose
      return true;
  }
  return false;
}

// ----------------------------------------------------------- record builders

MMAttri* MMAttriFromAny(MMAttri* record, const char* id, void* value, int length) {
  if (record == nullptr || id == nullptr) return nullptr;
  if ((value == nullptr) != (length == 0)) return nullptr;
  record->id = id;
  record->tag = MMAttriTagAny;
  record->value.bits = 0;
  record->value.pointer = value;
  record->length = length;
  return record;
}

MMAttri* MMAttriFromString(MMAttri* record, const char* id, const char* text) {
  if (record == nullptr || id == nullptr) return nullptr;
  record->id = id;
  record->tag = MMAttriTagAny;
  record->value.bits = 0;
  record->value.pointer = const_cast<char*>(text);
  record->length = text == nullptr ? 0 : static_cast<int32_t>(kau::mem::StrLen(text) + 1);
  return record;
}

MMAttri* MMAttriFromTag(MMAttri* record, const char* id, MMAttriTag tag) {
  if (record == nullptr || id == nullptr || tag == MMAttriTagNone) return nullptr;
  record->id = id;
  record->tag = tag;
  record->value.bits = 0;
  record->length = 0;
  return record;
}

MMAttri* MMAttriFromI32(MMAttri* record, const char* id, int value) {
  if (record == nullptr || id == nullptr) return nullptr;
  record->id = id;
  record->tag = MMAttriTagI32;
  record->value.bits = 0;
  record->value.i32 = value;
  record->length = 0;
  return record;
}

MMAttri* MMAttriFromU32(MMAttri* record, const char* id, unsigned int value) {
  if (record == nullptr || id == nullptr) return nullptr;
  record->id = id;
  record->tag = MMAttriTagU32;
  record->value.bits = 0;
  record->value.u32 = value;
  record->length = 0;
  return record;
}

// ----------------------------------------------------------- plain functions

MMStream* MMStreamNew(const MMAttri* records, unsigned int count) {
  kiu::StartUp();
  return Guarded<MMStream*>(nullptr, [&] { return MMStream::NewFromStreamRegistry(records, count); });
}

const char* MMStreamContent(MMStream* stream) {
  return Guarded<const char*>(nullptr, [&] { return MMStream::ContentFromContentRegistry(stream); });
}

int MMStreamDelete(MMStream** stream) {
  if (stream == nullptr || *stream == nullptr) return 0;
  return Guarded(0, [&] {
    MMStream* s = *stream;
    *stream = nullptr;
    delete s;
    return 1;
  });
}

unsigned int MMStreamGet(MMStream* stream, void* buffer, unsigned int size) {
  if (stream == nullptr) return 0;
  return Guarded(0u, [&] { return stream->Get(buffer, size); });
}

unsigned int MMStreamPut(MMStream* stream, const void* buffer, unsigned int size) {
  if (stream == nullptr) return 0;
  return Guarded(0u, [&] { return stream->Put(buffer, size); });
}

int MMStreamGetAttri(MMStream* stream, MMAttri* records, unsigned int count) {
  if (stream == nullptr) return 0;
  return Guarded(0, [&] { return stream->GetAttri(records, count); });
}

int MMStreamPutAttri(MMStream* stream, const MMAttri* records, unsigned int count) {
  if (stream == nullptr) return 0;
  return Guarded(0, [&] { return stream->PutAttri(records, count); });
}

int MMStreamNull(MMStream* stream) {
  if (stream == nullptr) return 0;
  return Guarded(0, [&] { return stream->Null(); });
}

int MMStreamPlay(MMStream* stream) {
  if (stream == nullptr) return 0;
  return Guarded(0, [&] { return stream->Play(); });
}

int MMStreamReady(MMStream* stream) {
  if (stream == nullptr) return 0;
  return Guarded(0, [&] { return stream->Ready(); });
}

int MMStreamSeek(MMStream* stream, long offset, MMStreamSeekFrom from) {
  if (stream == nullptr) return 0;
  return Guarded(0, [&] { return stream->Seek(offset, from); });
}

int MMStreamSize(MMStream* stream, unsigned long* size) {
  if (stream == nullptr || size == nullptr) return 0;
  return Guarded(0, [&] { return stream->Size(*size); });
}

int MMStreamTell(MMStream* stream, unsigned long* position) {
  if (stream == nullptr || position == nullptr) return 0;
  return Guarded(0, [&] { return stream->Tell(*position); });
}

void* MMAllocate(unsigned long size) { return std::malloc(size); }

void MMFree(void* p) {
  if (p != nullptr) std::free(p);
}

// ----------------------------------------------------------------- registries

namespace {

// A registry entry keeps its key records in the base attribute table.
class StreamRegistryEntry : public MMStream {
 public:
  StreamRegistryEntry(const MMAttri* keys, unsigned int count, Factory factory)
      : MMStream(keys, count), factory_(factory) {}

  // True when every key finds a caller record of the same id and tag (and,
  // for a keyed buffer, the same bytes).
  bool Matches(const MMAttri* records, unsigned int count) const {
    if (attributeCount_ == 0 || attributeCount_ > count) return false;
    for (uint32_t k = 0; k < attributeCount_; ++k) {
      const MMAttri& key = attributes_[k];
      const MMAttri* partner = nullptr;
      for (unsigned int i = 0; i < count && partner == nullptr; ++i) {
        if (records[i].id == key.id && records[i].tag == key.tag) partner = &records[i];
      }
      if (partner == nullptr) return false;
      if (key.tag == MMAttriTagAny && key.length != 0) {
        unsigned long n = static_cast<unsigned long>(key.length < 0 ? -key.length : key.length);
        if (kau::mem::Compare(partner->value.pointer, key.value.pointer, n) != 0) return false;
      }
    }
    return true;
  }

  uint32_t KeyCount() const { return attributeCount_; }
  Factory factory() const { return factory_; }

  StreamRegistryEntry* prev = nullptr;
  StreamRegistryEntry* next = nullptr;

 private:
  Factory factory_;
};

struct ContentRegistryEntry {
  char* name;
  MMStream::Probe probe;
  ContentRegistryEntry* next;
};

// Process-wide registries, filled at start-up and read-only afterwards.
StreamRegistryEntry* g_streamFirst = nullptr;
StreamRegistryEntry* g_streamLast = nullptr;
ContentRegistryEntry* g_contentFirst = nullptr;

}  // namespace

int MMStream::AddToStreamRegistry(const MMAttri* keys, unsigned int count, Factory factory) {
  if (keys == nullptr || count == 0 || factory == nullptr) return 0;
  for (unsigned int i = 0; i < count; ++i) {
    if (keys[i].tag == MMAttriTagAny && !AttriAnyValid(&keys[i])) return 0;
  }
  auto* entry = new StreamRegistryEntry(keys, count, factory);
  entry->prev = g_streamLast;
  (g_streamLast != nullptr ? g_streamLast->next : g_streamFirst) = entry;
  g_streamLast = entry;
  return 1;
}

MMStream* MMStream::NewFromStreamRegistry(const MMAttri* records, unsigned int count) {
  if (records == nullptr || count == 0 || g_streamFirst == nullptr) return nullptr;
  StreamRegistryEntry* best = nullptr;
  for (StreamRegistryEntry* e = g_streamFirst; e != nullptr; e = e->next) {
    if (e->Matches(records, count) && (best == nullptr || e->KeyCount() > best->KeyCount())) {
      best = e;
    }
  }
  if (best == nullptr) return nullptr;
  try {
    return best->factory()(records, count);
  } catch (...) {
    kau::ReportCurrentException(kSiteRegistryCatch);
    return nullptr;
  }
}

int MMStream::AddToContentRegistry(const char* name, Probe probe) {
  if (name == nullptr || probe == nullptr) return 0;
  auto* copy = static_cast<char*>(kau::mem::New(kau::mem::StrLen(name) + 1));
  if (copy == nullptr) return 0;
  kau::mem::CopyIncludingLast0(copy, name);
  auto* entry = new ContentRegistryEntry{copy, probe, nullptr};
  ContentRegistryEntry** link = &g_contentFirst;
  while (*link != nullptr) link = &(*link)->next;
  *link = entry;
  return 1;
}

const char* MMStream::ContentFromContentRegistry(MMStream* stream) {
  if (stream == nullptr) return nullptr;
  for (ContentRegistryEntry* e = g_contentFirst; e != nullptr; e = e->next) {
    stream->Ready();
    if (e->probe(stream)) return e->name;
  }
  return nullptr;
}

// ------------------------------------------------------------------ the keys

const char* const mmIdAngleInDegrees = "mm.image.angleInDegrees";
const char* const mmIdBitsPerColorChannel = "mm.image.bitsPerColorChannel";
const char* const mmIdBitsPerPixel = "mm.image.bitsPerPixel";
const char* const mmIdBitsPerSample = "mm.image.bitsPerSample";
const char* const mmIdChannelsTotal = "mm.image.channelsTotal";
const char* const mmIdColorSpace = "mm.image.colorSpace";
const char* const mmIdContentToGet = "mm.image.contentToGet";
const char* const mmIdContentToPut = "mm.image.contentToPut";
const char* const mmIdData = "mm.image.data";
const char* const mmIdDurationInMsec = "mm.image.durationInMsec";
const char* const mmIdFileMode = "mm.image.fileMode";
const char* const mmIdFileName = "mm.image.fileName";
const char* const mmIdFrameDurationInMsec = "mm.image.frameDurationInMsec";
const char* const mmIdFramesTotal = "mm.image.framesTotal";
const char* const mmIdHeight = "mm.image.height";
const char* const mmIdHorizontalSamplesU = "mm.image.horizontalSamplesU";
const char* const mmIdHorizontalSamplesV = "mm.image.horizontalSamplesV";
const char* const mmIdHorizontalSamplesY = "mm.image.horizontalSamplesY";
const char* const mmIdImageQuality = "mm.image.imageQuality";
const char* const mmIdLocationInMsec = "mm.image.locationInMsec";
const char* const mmIdMaskA = "mm.image.maskA";
const char* const mmIdMaskB = "mm.image.maskB";
const char* const mmIdMaskG = "mm.image.maskG";
const char* const mmIdMaskR = "mm.image.maskR";
const char* const mmIdPageSize = "mm.image.pageSize";
const char* const mmIdRowStrideInBytes = "mm.image.rowStrideInBytes";
const char* const mmIdSampleRate = "mm.image.sampleRate";
const char* const mmIdShiftA = "mm.image.shiftA";
const char* const mmIdShiftB = "mm.image.shiftB";
const char* const mmIdShiftG = "mm.image.shiftG";
const char* const mmIdShiftR = "mm.image.shiftR";
const char* const mmIdStreamToGet = "mm.image.streamToGet";
const char* const mmIdStreamToPut = "mm.image.streamToPut";
const char* const mmIdVerticalSamplesU = "mm.image.verticalSamplesU";
const char* const mmIdVerticalSamplesV = "mm.image.verticalSamplesV";
const char* const mmIdVerticalSamplesY = "mm.image.verticalSamplesY";
const char* const mmIdWidth = "mm.image.width";
