// Stream over an owned, growable page array: the sink the encoder writes to.
// Writes always append; reads start at the read position.
#ifndef KIU_MMPAGEARRAYSTREAM_H
#define KIU_MMPAGEARRAYSTREAM_H

#include "../kau/pagearray.h"
#include "mmstream.h"

class MMPageArrayStream : public MMStream {
 public:
  static MMStream* New(const MMAttri* records, unsigned int count);
  ~MMPageArrayStream() override;

  unsigned int Get(void* buffer, unsigned int size) override;
  int Null() override;
  int Play() override;
  unsigned int Put(const void* buffer, unsigned int size) override;
  int Ready() override;
  int Seek(long offset, MMStreamSeekFrom from) override;
  int Size(unsigned long& size) override;
  int Tell(unsigned long& position) override;

  // A ready page-array stream chosen through the registry, as the encoder's
  // callers and the decoder's feeding object use it; null on failure.
  static MMStream* NewReady(uint32_t pageSize);

  // The stored bytes, for callers that copy them out whole (the elements).
  const kau::PageArray* Pages() const { return pages_; }

  static constexpr uint32_t kDefaultPageSize = 4096;

 private:
  using MMStream::MMStream;

  kau::PageArray* pages_ = nullptr;
  uint32_t position_ = 0;
  uint32_t pageSize_ = 0;
};

#endif  // KIU_MMPAGEARRAYSTREAM_H
