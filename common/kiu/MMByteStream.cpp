#include "MMByteStream.h"

#include "../kau/kau.h"

MMStream* MMByteStream::New(const MMAttri* records, unsigned int count) {
  return new MMByteStream(records, count);
}

int MMByteStream::Null() {
  start_ = position_ = nullptr;
  size_ = remaining_ = 0;
  return 1;
}

int MMByteStream::Ready() {
  Null();
  MMAttri* data = AttriGet(mmIdData);
  if (!AttriAnyValid(data)) return 0;
  start_ = position_ = static_cast<unsigned char*>(data->value.pointer);
  size_ = remaining_ = static_cast<uint32_t>(data->length < 0 ? -data->length : data->length);
  return 1;
}

unsigned int MMByteStream::Get(void* buffer, unsigned int size) {
  if (size == 0 || buffer == nullptr || start_ == nullptr || remaining_ > size_) return 0;
  unsigned int n = size < remaining_ ? size : remaining_;
  kau::mem::Copy8(buffer, position_, n);
  position_ += n;
  remaining_ -= n;
  return n;
}

unsigned int MMByteStream::Put(const void* buffer, unsigned int size) {
  if (size == 0 || buffer == nullptr || start_ == nullptr || remaining_ > size_) return 0;
  unsigned int n = size < remaining_ ? size : remaining_;
  kau::mem::Copy8(position_, buffer, n);
  position_ += n;
  remaining_ -= n;
  return n;
}

int MMByteStream::Seek(long offset, MMStreamSeekFrom from) {
  int64_t target = 0;
  if (start_ == nullptr || !MMSeekTarget(size_, size_ - remaining_, offset, from, &target)) return 0;
  // A negative offset from the start is kept as it is; Get and Put then see
  // a position outside the buffer and move nothing.
  position_ =
      reinterpret_cast<unsigned char*>(reinterpret_cast<uintptr_t>(start_) + static_cast<uintptr_t>(target));
  remaining_ = size_ - static_cast<uint32_t>(target);
  return 1;
}

int MMByteStream::Size(unsigned long& size) {
  size = size_;
  return 1;
}

int MMByteStream::Tell(unsigned long& position) {
  position = size_ - remaining_;
  return 1;
}

int MMByteStreamRegistered() {
  static const int result = [] {
    MMAttri key;
    MMAttriFromAny(&key, mmIdData, nullptr, 0);
    return MMStream::AddToStreamRegistry(&key, 1, MMByteStream::New);
  }();
  return result;
}
