// Stream over a stdio file named by mmIdFileName (mode mmIdFileMode, "rb").
#ifndef KIU_MMFILESTREAM_H
#define KIU_MMFILESTREAM_H

#include <cstdio>

#include "mmstream.h"

class MMFileStream : public MMStream {
 public:
  static MMStream* New(const MMAttri* records, unsigned int count);
  ~MMFileStream() override;

  unsigned int Get(void* buffer, unsigned int size) override;
  int Null() override;
  int Play() override;
  unsigned int Put(const void* buffer, unsigned int size) override;
  int Ready() override;
  int Seek(long offset, MMStreamSeekFrom from) override;
  int Size(unsigned long& size) override;
  int Tell(unsigned long& position) override;

 private:
  using MMStream::MMStream;
  int Close();

  std::FILE* file_ = nullptr;
};

#endif  // KIU_MMFILESTREAM_H
