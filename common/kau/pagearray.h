// Growable byte store of equal-sized pages: appending never moves bytes
// already written, so a writer of unknown total length can stream into it.
#ifndef KAU_PAGEARRAY_H
#define KAU_PAGEARRAY_H

#include <cstdint>

namespace kau {

class PageArray {
 public:
  PageArray(unsigned long slots, unsigned long pageSize);
  ~PageArray();
  PageArray(const PageArray&) = delete;
  PageArray& operator=(const PageArray&) = delete;

  void Create(unsigned long slots, unsigned long pageSize);
  unsigned char* AddPage();
  void PushBytes(const unsigned char* bytes, unsigned long count);
  unsigned long GetBytes(unsigned char* buffer, unsigned long count, unsigned long offset) const;
  int CopyTo(void* buffer) const;
  int SetByteCountInLastPage(unsigned long count);
  int DeleteLastPage();
  void DisposePages();

  uint32_t PageSize() const { return pageSize_; }
  uint32_t PageCount() const { return pageCount_; }
  uint32_t PageSlots() const { return pageSlots_; }
  uint32_t BytesInLastPage() const { return bytesInLastPage_; }
  uint32_t ByteCount() const { return pageCount_ == 0 ? 0 : pageSize_ * (pageCount_ - 1) + bytesInLastPage_; }

 private:
  uint32_t pageSlots_ = 0;
  uint32_t pageSize_ = 0;
  uint32_t pageCount_ = 0;
  uint32_t bytesInLastPage_ = 0;
  unsigned char** pages_ = nullptr;
};

}  // namespace kau

#endif  // KAU_PAGEARRAY_H
