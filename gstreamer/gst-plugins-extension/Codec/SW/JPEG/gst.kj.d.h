// keljpeg_dec: a JPEG byte stream in (concatenated images, split anyhow),
// one I420 frame out per complete image.
#ifndef GST_KJ_D_H
#define GST_KJ_D_H

#include "gst.kj.compat.h"
#include "kj.d/kj.dfeed.h"

G_BEGIN_DECLS

#define GST_TYPE_KELJPEG_DEC (gst_keljpeg_dec_get_type())
#define GST_KELJPEG_DEC(obj) (G_TYPE_CHECK_INSTANCE_CAST((obj), GST_TYPE_KELJPEG_DEC, GstKelJpegDec))

struct GstKelJpegDec {
  GstElement element;
  GstPad* sinkpad;
  GstPad* srcpad;
  kjd::Input input;
  gboolean capsSet;  // the source caps match width, height and frame rate
  gint32 width;
  gint32 height;
  gint32 fpsN;
  gint32 fpsD;
  GstClockTime frameDuration;
  GstClockTime nextTimestamp;
  // The input already holds a whole image (left over from the last one);
  // new bytes are appended behind it unscanned until it is decoded.
  gboolean imageHeld;
#if KEL_GST_1
  gboolean needSegment;
  GstSegment segment;
  gboolean downstreamVideoMeta;  // downstream takes GstVideoMeta
  // Frames of one size decode into its buffers, which come back when
  // downstream drops them; replaced when the size changes.
  GstBufferPool* pool;
  guint32 poolWidth;
  guint32 poolHeight;
#else
  // The planes each frame decodes into before it is copied downstream,
  // kept while frames keep their size.
  unsigned char* planes;
  guint32 planesBytes;
#endif
};

struct GstKelJpegDecClass {
  GstElementClass parentClass;
};

GType gst_keljpeg_dec_get_type(void);

G_END_DECLS

#endif  // GST_KJ_D_H
