#include "MMFileStream.h"

#include "../kau/kau.h"

namespace {

constexpr const char* kSource = "common/kiu/MMFileStream";
constexpr kau::Fault kSiteTellFailed{kSource, 118, kau::Category::kIo, "the file position cannot be read"};
constexpr kau::Fault kSiteSeekEndFailed{kSource, 120, kau::Category::kIo,
                                        "the file cannot be searched to its end"};
constexpr kau::Fault kSiteTellEndFailed{kSource, 123, kau::Category::kIo, "the file size cannot be read"};
constexpr kau::Fault kSiteSeekBackFailed{kSource, 125, kau::Category::kIo,
                                         "the file cannot be searched back"};
constexpr kau::Site kSiteSizeCatch{kSource, 130};

}  // namespace

MMStream* MMFileStream::New(const MMAttri* records, unsigned int count) {
  return new MMFileStream(records, count);
}

MMFileStream::~MMFileStream() { Close(); }

int MMFileStream::Close() {
  if (file_ == nullptr) return 1;
  int rc = std::fclose(file_);
  file_ = nullptr;
  return rc == 0 ? 1 : 0;
}

int MMFileStream::Null() { return Close(); }

int MMFileStream::Ready() {
  if (file_ != nullptr) return 1;  // already open: keep it
  const char* path = AttriAnyString(mmIdFileName);
  if (path == nullptr) return 0;
  const char* mode = AttriAnyString(mmIdFileMode);
  file_ = std::fopen(path, mode != nullptr ? mode : "rb");
  return file_ != nullptr ? 1 : 0;
}

int MMFileStream::Play() {
  if (file_ != nullptr) return 1;
  return Ready() != 0 ? 1 : 0;
}

unsigned int MMFileStream::Get(void* buffer, unsigned int size) {
  if (file_ == nullptr || buffer == nullptr || size == 0) return 0;
  return static_cast<unsigned int>(std::fread(buffer, 1, size, file_));
}

unsigned int MMFileStream::Put(const void* buffer, unsigned int size) {
  if (file_ == nullptr || buffer == nullptr || size == 0) return 0;
  return static_cast<unsigned int>(std::fwrite(buffer, 1, size, file_));
}

int MMFileStream::Seek(long offset, MMStreamSeekFrom from) {
  if (file_ == nullptr) return 0;
  int origin;
  switch (from) {
    case MMStreamSeekFromEnd:
      origin = SEEK_END;
      break;
    case MMStreamSeekFromCurrent:
      origin = SEEK_CUR;
      break;
    case MMStreamSeekFromStart:
      origin = SEEK_SET;
      break;
    default:
      return 0;
  }
  return std::fseek(file_, offset, origin) == 0 ? 1 : 0;
}

int MMFileStream::Tell(unsigned long& position) {
  if (file_ == nullptr) return 0;
  position = static_cast<unsigned long>(std::ftell(file_));  // a failure value included
  return 1;
}

int MMFileStream::Size(unsigned long& size) {
  try {
    if (file_ == nullptr) kau::Throw(kSiteTellFailed);
    long saved = std::ftell(file_);
    if (saved < 0) kau::Throw(kSiteTellFailed);
    if (std::fseek(file_, 0, SEEK_END) != 0) kau::Throw(kSiteSeekEndFailed);
    long end = std::ftell(file_);
    if (end < 0) kau::Throw(kSiteTellEndFailed);
    if (std::fseek(file_, saved, SEEK_SET) != 0) kau::Throw(kSiteSeekBackFailed);
    size = static_cast<unsigned long>(end);
    return 1;
  } catch (...) {
    kau::ReportCurrentException(kSiteSizeCatch);
    return 0;
  }
}

int MMFileStreamRegistered() {
  static const int result = [] {
    MMAttri key;
    MMAttriFromAny(&key, mmIdFileName, nullptr, 0);
    return MMStream::AddToStreamRegistry(&key, 1, MMFileStream::New);
  }();
  return result;
}
