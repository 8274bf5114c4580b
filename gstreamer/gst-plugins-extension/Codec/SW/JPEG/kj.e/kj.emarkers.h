// Marker codes written by the encoder.
#ifndef KJ_E_KJ_EMARKERS_H
#define KJ_E_KJ_EMARKERS_H

namespace kje {

enum MarkerCode : int {
  kMarkerSOF0 = 0xC0,
  kMarkerSOF1 = 0xC1,
  kMarkerDHT = 0xC4,
  kMarkerSOI = 0xD8,
  kMarkerEOI = 0xD9,
  kMarkerSOS = 0xDA,
  kMarkerDQT = 0xDB,
  kMarkerAPP0 = 0xE0,
  kMarkerAPP14 = 0xEE,
};

}  // namespace kje

#endif  // KJ_E_KJ_EMARKERS_H
