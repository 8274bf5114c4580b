// keljpeg_enc: I420 frames in, one baseline JPEG out per frame.
#ifndef GST_KJ_E_H
#define GST_KJ_E_H

#include "gst.kj.compat.h"

G_BEGIN_DECLS

#define GST_TYPE_KELJPEG_ENC (gst_keljpeg_enc_get_type())
#define GST_KELJPEG_ENC(obj) (G_TYPE_CHECK_INSTANCE_CAST((obj), GST_TYPE_KELJPEG_ENC, GstKelJpegEnc))

struct GstKelJpegEnc {
  GstElement element;
  GstPad* sinkpad;
  GstPad* srcpad;
  gint32 width;  // from the sink caps; 0 until then
  gint32 height;
  gint32 quality;
  gint32 fpsN;
  gint32 fpsD;
#if KEL_GST_1
  GstVideoInfo info;  // the negotiated frame's default layout
#endif
};

struct GstKelJpegEncClass {
  GstElementClass parentClass;
  void (*frameEncoded)(GstKelJpegEnc* self);
};

GType gst_keljpeg_enc_get_type(void);

G_END_DECLS

#endif  // GST_KJ_E_H
