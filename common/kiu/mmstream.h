// Stream framework: a byte source or sink carrying a small table of typed,
// keyed attributes. Streams are chosen by their attributes through the stream
// registry (MMStreamNew) and driven through the plain functions below.
#ifndef KIU_MMSTREAM_H
#define KIU_MMSTREAM_H

#include <cstdint>

#include "../kau/kexport.h"

enum MMAttriTag : int32_t {
  MMAttriTagNone = 0,  // in a query: any tag
  MMAttriTagAny = 1,   // buffer: pointer plus byte length
  MMAttriTagI32 = 4,
  MMAttriTagU32 = 6,
};

enum MMStreamSeekFrom : int32_t {
  MMStreamSeekFromEnd = 0,
  MMStreamSeekFromCurrent = 1,
  MMStreamSeekFromStart = 2,
};

// Four 32-bit words on the target; the value word is pointer-sized elsewhere.
struct MMAttri {
  const char* id;  // one of the mmId* pointers; compared by identity
  MMAttriTag tag;
  union {
    void* pointer;
    int32_t i32;
    uint32_t u32;
    uintptr_t bits;
  } value;
  int32_t length;  // tag 1 only; negative: the holder owns the buffer
};

class MMStream {
 public:
  MMStream(const MMAttri* records, unsigned int count);
  virtual ~MMStream();
  MMStream(const MMStream&) = delete;
  MMStream& operator=(const MMStream&) = delete;

  virtual unsigned int Get(void* buffer, unsigned int size);
  virtual int GetAttri(MMAttri* records, unsigned int count);
  virtual int Null();
  virtual int Play();
  virtual unsigned int Put(const void* buffer, unsigned int size);
  virtual int PutAttri(const MMAttri* records, unsigned int count);
  virtual int Ready();
  virtual int Seek(long offset, MMStreamSeekFrom from);
  virtual int Size(unsigned long& size);
  virtual int Tell(unsigned long& position);

  MMAttri* AttriGet(const char* id);
  MMAttri* AttriGetI32(const char* id);
  MMAttri* AttriGetU32(const char* id);
  static int AttriAnyValid(const MMAttri* record);
  void* AttriAnyPointer(const char* id);
  const char* AttriAnyString(const char* id);
  static int AttriAnyFree(MMAttri* record);
  MMAttri* AttriPut(const char* id, MMAttriTag tag);

  using Factory = MMStream* (*)(const MMAttri*, unsigned int);
  using Probe = bool (*)(MMStream*);
  static int AddToStreamRegistry(const MMAttri* keys, unsigned int count, Factory factory);
  static MMStream* NewFromStreamRegistry(const MMAttri* records, unsigned int count);
  static int AddToContentRegistry(const char* name, Probe probe);
  static const char* ContentFromContentRegistry(MMStream* stream);

  static constexpr unsigned int kMaxAttributes = 16;

 protected:
  MMAttri* attributes_;
  uint32_t attributeCount_;

 private:
  MMAttri* Find(const char* id, MMAttriTag tag);
};

// Seeking rule shared by the byte and page-array streams; false for an
// unknown origin. A negative offset from the start is not clamped, on purpose,
// so *target may be negative.
bool MMSeekTarget(uint32_t size, uint32_t position, long offset, MMStreamSeekFrom from, int64_t* target);

// Record builders: fill *record and return it, or null.
KEL_API MMAttri* MMAttriFromAny(MMAttri* record, const char* id, void* value, int length);
KEL_API MMAttri* MMAttriFromString(MMAttri* record, const char* id, const char* text);
KEL_API MMAttri* MMAttriFromTag(MMAttri* record, const char* id, MMAttriTag tag);
KEL_API MMAttri* MMAttriFromI32(MMAttri* record, const char* id, int value);
KEL_API MMAttri* MMAttriFromU32(MMAttri* record, const char* id, unsigned int value);

// Plain functions: 0 or null for a null stream, else the virtual operation.
KEL_API MMStream* MMStreamNew(const MMAttri* records, unsigned int count);
KEL_API const char* MMStreamContent(MMStream* stream);
KEL_API int MMStreamDelete(MMStream** stream);
KEL_API unsigned int MMStreamGet(MMStream* stream, void* buffer, unsigned int size);
KEL_API unsigned int MMStreamPut(MMStream* stream, const void* buffer, unsigned int size);
KEL_API int MMStreamGetAttri(MMStream* stream, MMAttri* records, unsigned int count);
KEL_API int MMStreamPutAttri(MMStream* stream, const MMAttri* records, unsigned int count);
KEL_API int MMStreamNull(MMStream* stream);
KEL_API int MMStreamPlay(MMStream* stream);
KEL_API int MMStreamReady(MMStream* stream);
KEL_API int MMStreamSeek(MMStream* stream, long offset, MMStreamSeekFrom from);
KEL_API int MMStreamSize(MMStream* stream, unsigned long* size);
KEL_API int MMStreamTell(MMStream* stream, unsigned long* position);

KEL_API void* MMAllocate(unsigned long size);
KEL_API void MMFree(void* p);

KEL_API int MMByteStreamRegistered();
KEL_API int MMFileStreamRegistered();
KEL_API int MMPageArrayStreamRegistered();

// Attribute keys, compared by pointer identity.
KEL_API extern const char* const mmIdAngleInDegrees;
KEL_API extern const char* const mmIdBitsPerColorChannel;
KEL_API extern const char* const mmIdBitsPerPixel;
KEL_API extern const char* const mmIdBitsPerSample;
KEL_API extern const char* const mmIdChannelsTotal;
KEL_API extern const char* const mmIdColorSpace;
KEL_API extern const char* const mmIdContentToGet;
KEL_API extern const char* const mmIdContentToPut;
KEL_API extern const char* const mmIdData;
KEL_API extern const char* const mmIdDurationInMsec;
KEL_API extern const char* const mmIdFileMode;
KEL_API extern const char* const mmIdFileName;
KEL_API extern const char* const mmIdFrameDurationInMsec;
KEL_API extern const char* const mmIdFramesTotal;
KEL_API extern const char* const mmIdHeight;
KEL_API extern const char* const mmIdHorizontalSamplesU;
KEL_API extern const char* const mmIdHorizontalSamplesV;
KEL_API extern const char* const mmIdHorizontalSamplesY;
KEL_API extern const char* const mmIdImageQuality;
KEL_API extern const char* const mmIdLocationInMsec;
KEL_API extern const char* const mmIdMaskA;
KEL_API extern const char* const mmIdMaskB;
KEL_API extern const char* const mmIdMaskG;
KEL_API extern const char* const mmIdMaskR;
KEL_API extern const char* const mmIdPageSize;
KEL_API extern const char* const mmIdRowStrideInBytes;
KEL_API extern const char* const mmIdSampleRate;
KEL_API extern const char* const mmIdShiftA;
KEL_API extern const char* const mmIdShiftB;
KEL_API extern const char* const mmIdShiftG;
KEL_API extern const char* const mmIdShiftR;
KEL_API extern const char* const mmIdStreamToGet;
KEL_API extern const char* const mmIdStreamToPut;
KEL_API extern const char* const mmIdVerticalSamplesU;
KEL_API extern const char* const mmIdVerticalSamplesV;
KEL_API extern const char* const mmIdVerticalSamplesY;
KEL_API extern const char* const mmIdWidth;

#endif  // KIU_MMSTREAM_H
