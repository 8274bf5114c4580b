// Stream over a caller's memory buffer (the mmIdData attribute).
#ifndef KIU_MMBYTESTREAM_H
#define KIU_MMBYTESTREAM_H

#include "mmstream.h"

class MMByteStream : public MMStream {
 public:
  static MMStream* New(const MMAttri* records, unsigned int count);
  ~MMByteStream() override = default;

  unsigned int Get(void* buffer, unsigned int size) override;
  int Null() override;
  unsigned int Put(const void* buffer, unsigned int size) override;
  int Ready() override;
  int Seek(long offset, MMStreamSeekFrom from) override;
  int Size(unsigned long& size) override;
  int Tell(unsigned long& position) override;

 private:
  using MMStream::MMStream;

  unsigned char* start_ = nullptr;
  unsigned char* position_ = nullptr;
  uint32_t size_ = 0;
  uint32_t remaining_ = 0;
};

#endif  // KIU_MMBYTESTREAM_H
