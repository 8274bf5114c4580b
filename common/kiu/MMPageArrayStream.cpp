#include "MMPageArrayStream.h"

#include "../kau/kau.h"

namespace {

constexpr const char* kSource = "common/kiu/MMPageArrayStream";
constexpr kau::Site kSiteReadyCatch{kSource, 52};
constexpr kau::Site kSiteNullCatch{kSource, 74};
constexpr kau::Site kSitePutCatch{kSource, 96};

}  // namespace

MMStream* MMPageArrayStream::New(const MMAttri* records, unsigned int count) {
  return new MMPageArrayStream(records, count);
}

MMStream* MMPageArrayStream::NewReady(uint32_t pageSize) {
  MMAttri records[2];
  MMAttriFromAny(&records[0], mmIdData, nullptr, 0);  // selects the class; never read
  MMAttriFromU32(&records[1], mmIdPageSize, pageSize);
  MMStream* stream = MMStreamNew(records, 2);
  if (stream != nullptr && MMStreamReady(stream) == 0) MMStreamDelete(&stream);
  return stream;
}

MMPageArrayStream::~MMPageArrayStream() { Null(); }

int MMPageArrayStream::Ready() {
  if (pages_ == nullptr) {
    MMAttri* size = AttriGetU32(mmIdPageSize);
    pageSize_ = size != nullptr && size->value.u32 != 0 ? size->value.u32 : kDefaultPageSize;
    try {
      pages_ = new kau::PageArray(16, pageSize_);
    } catch (...) {
      kau::ReportCurrentException(kSiteReadyCatch);
      return 0;
    }
  }
  position_ = 0;
  return 1;
}

int MMPageArrayStream::Play() {
  if (pages_ != nullptr) return 1;
  return Ready() != 0 ? 1 : 0;
}

int MMPageArrayStream::Null() {
  kau::PageArray* pages = pages_;
  pages_ = nullptr;
  position_ = 0;
  try {
    delete pages;
  } catch (...) {
    kau::ReportCurrentException(kSiteNullCatch);
    return 0;
  }
  return 1;
}

unsigned int MMPageArrayStream::Put(const void* buffer, unsigned int size) {
  if (buffer == nullptr || pages_ == nullptr || size == 0) return 0;
  try {
    pages_->PushBytes(static_cast<const unsigned char*>(buffer), size);
  } catch (...) {
    kau::ReportCurrentException(kSitePutCatch);
    return 0;
  }
  uint32_t end = pages_->ByteCount();
  unsigned int moved = end - position_;
  position_ = end;
  return moved;
}

unsigned int MMPageArrayStream::Get(void* buffer, unsigned int size) {
  if (size == 0 || buffer == nullptr || pages_ == nullptr) return 0;
  auto n = static_cast<unsigned int>(pages_->GetBytes(static_cast<unsigned char*>(buffer), size, position_));
  position_ += n;
  return n;
}

int MMPageArrayStream::Seek(long offset, MMStreamSeekFrom from) {
  int64_t target = 0;
  if (pages_ == nullptr || !MMSeekTarget(pages_->ByteCount(), position_, offset, from, &target)) return 0;
  position_ = static_cast<uint32_t>(target);  // a negative target wraps; reads then get nothing
  return 1;
}

int MMPageArrayStream::Size(unsigned long& size) {
  if (pages_ == nullptr) return 0;
  size = pages_->ByteCount();
  return 1;
}

int MMPageArrayStream::Tell(unsigned long& position) {
  if (pages_ == nullptr) return 0;
  position = position_;
  return 1;
}

int MMPageArrayStreamRegistered() {
  static const int result = [] {
    MMAttri keys[2];
    MMAttriFromAny(&keys[0], mmIdData, nullptr, 0);
    MMAttriFromTag(&keys[1], mmIdPageSize, MMAttriTagU32);
    return MMStream::AddToStreamRegistry(keys, 2, MMPageArrayStream::New);
  }();
  return result;
}
