#include "pagearray.h"

#include "kau.h"

namespace kau {
namespace {

constexpr const char* kSource = "common/kau/pagearray";
constexpr Fault kSiteZeroPageSize{kSource, 31, Category::kBadArgument, "a page size of 0 or beyond 32 bits"};
constexpr Fault kSiteTableNull{kSource, 37, Category::kOutOfMemory, "no memory for the page table"};
constexpr Fault kSiteGrowNull{kSource, 52, Category::kOutOfMemory, "no memory to grow the page table"};
constexpr Fault kSitePageNull{kSource, 62, Category::kOutOfMemory, "no memory for a page"};
constexpr Fault kSiteCopyToNull{kSource, 131, Category::kBadArgument, "a copy into a null buffer"};
constexpr Site kSiteDisposeCatch{kSource, 171};

constexpr uint32_t kGrowSlots = 16;

unsigned char** NewTable(uint32_t slots, const Fault& site) {
  void* p = mem::New(static_cast<unsigned long>(slots) * sizeof(unsigned char*));
  if (p == nullptr) Throw(site);
  return static_cast<unsigned char**>(p);
}

}  // namespace

PageArray::PageArray(unsigned long slots, unsigned long pageSize) { Create(slots, pageSize); }

PageArray::~PageArray() { DisposePages(); }

void PageArray::Create(unsigned long slots, unsigned long pageSize) {
  DisposePages();
  if (pageSize == 0 || pageSize > UINT32_MAX) Throw(kSiteZeroPageSize);
  pageSize_ = static_cast<uint32_t>(pageSize);
  if (slots != 0) {
    if (slots > UINT32_MAX / sizeof(unsigned char*)) Throw(kSiteTableNull);
    pages_ = NewTable(static_cast<uint32_t>(slots), kSiteTableNull);
    pageSlots_ = static_cast<uint32_t>(slots);
  }
}

unsigned char* PageArray::AddPage() {
  if (pageCount_ == pageSlots_) {
    // Linear growth, 16 slots at a time.
    unsigned char** table = NewTable(pageSlots_ + kGrowSlots, kSiteGrowNull);
    if (pageCount_ != 0) mem::Copy8(table, pages_, pageCount_ * sizeof(unsigned char*));
    mem::Delete(pages_);
    pages_ = table;
    pageSlots_ += kGrowSlots;
  }
  auto* page = static_cast<unsigned char*>(mem::New(pageSize_));
  if (page == nullptr) Throw(kSitePageNull);
  pages_[pageCount_++] = page;
  bytesInLastPage_ = 0;
  return page;
}

void PageArray::PushBytes(const unsigned char* bytes, unsigned long count) {
  if (bytes == nullptr || count == 0) return;
  if (pageCount_ != 0 && bytesInLastPage_ < pageSize_ && count <= pageSize_ - bytesInLastPage_) {
    mem::Copy8(pages_[pageCount_ - 1] + bytesInLastPage_, bytes, count);
    bytesInLastPage_ += static_cast<uint32_t>(count);
    return;
  }
  if (pageCount_ == 0 || bytesInLastPage_ == pageSize_) {
    unsigned char* page = AddPage();
    if (count <= pageSize_) {
      mem::Copy8(page, bytes, count);
      bytesInLastPage_ = static_cast<uint32_t>(count);
      return;
    }
  }
  // Fill the current page, then whole pages, then the remainder.
  uint32_t room = pageSize_ - bytesInLastPage_;
  mem::Copy8(pages_[pageCount_ - 1] + bytesInLastPage_, bytes, room);
  bytes += room;
  count -= room;
  while (count >= pageSize_) {
    mem::Copy8(AddPage(), bytes, pageSize_);
    bytes += pageSize_;
    count -= pageSize_;
  }
  if (count == 0) {
    bytesInLastPage_ = pageSize_;
    return;
  }
  mem::Copy8(AddPage(), bytes, count);
  bytesInLastPage_ = static_cast<uint32_t>(count);
}

unsigned long PageArray::GetBytes(unsigned char* buffer, unsigned long count, unsigned long offset) const {
  uint32_t total = ByteCount();
  if (pageCount_ == 0 || buffer == nullptr || count == 0 || offset >= total) return 0;
  unsigned long n = count < total - offset ? count : total - offset;
  uint32_t page = static_cast<uint32_t>(offset / pageSize_);
  uint32_t at = static_cast<uint32_t>(offset % pageSize_);
  unsigned long left = n;
  while (left != 0) {
    unsigned long chunk = pageSize_ - at;
    if (chunk > left) chunk = left;
    mem::Copy8(buffer, pages_[page] + at, chunk);
    buffer += chunk;
    left -= chunk;
    ++page;
    at = 0;
  }
  return n;
}

int PageArray::CopyTo(void* buffer) const {
  if (pageCount_ == 0) return 0;
  if (buffer == nullptr) Throw(kSiteCopyToNull);
  auto* out = static_cast<unsigned char*>(buffer);
  for (uint32_t i = 0; i + 1 < pageCount_; ++i, out += pageSize_) {
    mem::Copy8(out, pages_[i], pageSize_);
  }
  mem::Copy8(out, pages_[pageCount_ - 1], bytesInLastPage_);
  return 1;
}

int PageArray::SetByteCountInLastPage(unsigned long count) {
  if (pageCount_ == 0 || count > pageSize_) return 0;
  bytesInLastPage_ = static_cast<uint32_t>(count);
  return 1;
}

int PageArray::DeleteLastPage() {
  if (pageCount_ == 0) return 0;
  mem::Delete(pages_[pageCount_ - 1]);
  pages_[--pageCount_] = nullptr;
  bytesInLastPage_ = pageCount_ != 0 ? pageSize_ : 0;
  return 1;
}

void PageArray::DisposePages() {
  try {
    while (pageCount_ != 0) {
      mem::Delete(pages_[pageCount_ - 1]);
      pages_[--pageCount_] = nullptr;
    }
    mem::Delete(pages_);
    pages_ = nullptr;
  } catch (...) {
    ReportCurrentException(kSiteDisposeCatch);
    return;
  }
  pageSlots_ = 0;
  pageCount_ = 0;
  bytesInLastPage_ = 0;
}

}  // namespace kau
