// The host's effect interface (effect interface version 11.0), declared by this project.
//
// Every record matches the host's 32-bit Windows layout: 2-byte packing, 4-byte
// longs and pointers, 16-bit QuickDraw-order points and rectangles. Elsewhere
// (64-bit Linux and Windows, used by our own hosts) the same declarations are
// naturally aligned with native pointers; only our hosts ever see that layout.
// Fields are fixed-width so that "long" is 32 bits on every platform.
#pragma once

#include <stdint.h>

#include "pf_pixel.h"

#if defined(_WIN32)
#define PF_CDECL __cdecl
#else
#define PF_CDECL
#endif

#if defined(_WIN32) && !defined(_WIN64)
#pragma pack(push, 2)
#define TARVO_HOST_PACKED 1
#endif

#ifdef __cplusplus
extern "C" {
#endif

typedef int32_t PF_Err;
typedef int32_t PF_Cmd;
typedef int32_t PF_Fixed;  // signed 16.16
typedef uint32_t PF_UFixed;
typedef char PF_Boolean;
typedef void** PF_Handle;
typedef int32_t PF_ParamValue;
typedef int32_t PF_ParamIndex;
typedef int32_t PF_ParamType;
typedef int32_t PF_ParamFlags;
typedef int32_t PF_ParamUIFlags;
typedef int32_t PF_ChangeFlags;
typedef int32_t PF_Quality;
typedef int32_t PF_Field;
typedef int32_t PF_OutFlags;
typedef int32_t PF_OutFlags2;
typedef int32_t PF_InFlags;
typedef int32_t PF_WorldFlags;
typedef int32_t PF_ModeFlags;
typedef int32_t PF_NewWorldFlags;
typedef int16_t PF_ValueDisplayFlags;
typedef struct _PF_ProgressInfo* PF_ProgPtr;  // opaque host cookie (effect_ref)
typedef PF_Pixel* PF_PixelPtr;

typedef struct {
  int16_t v, h;
} PF_Point;

typedef struct {
  int16_t top, left, bottom, right;
} PF_Rect;
typedef PF_Rect PF_UnionableRect;

typedef struct {
  int32_t num;
  uint32_t den;
} PF_RationalScale;

typedef struct {
  int16_t major, minor;
} PF_SpecVersion;

typedef struct {
  PF_Fixed x, y;
} PF_FixedPoint;

typedef struct {
  double rateF;
  int16_t num_channels;
  int16_t format;
  int16_t sample_size;
} PF_SoundFormatInfo;

typedef struct {
  PF_SoundFormatInfo fi;
  int32_t num_samples;
  void* dataP;
} PF_SoundWorld;

// PF_LayerDef == PF_EffectWorld: an 8-bit ARGB image owned by the host.
typedef struct PF_LayerDef {
  int32_t reserved0;
  int32_t reserved1;
  PF_WorldFlags world_flags;
  PF_PixelPtr data;  // null: no layer
  int32_t rowbytes;
  int32_t width;
  int32_t height;
  PF_UnionableRect extent_hint;
  int32_t platform_ref;
  int32_t reserved_long1;
  int32_t reserved_long4;
  PF_RationalScale pix_aspect_ratio;
  int32_t reserved_long2;
  int32_t origin_x;
  int32_t origin_y;
  int32_t reserved_long3;
  int32_t dephault;  // PF_LayerDefault_*
} PF_LayerDef;
typedef PF_LayerDef PF_EffectWorld;

enum {
  PF_MAX_EFFECT_NAME_LEN = 31,
  PF_MAX_EFFECT_PARAM_NAME_LEN = 31,
  PF_MAX_PARAM_DESCRIPTION_LEN = 31,
  PF_MAX_PARAM_VALUE_LEN = 31,
  PF_MAX_EFFECT_MSG_LEN = 255
};

typedef struct {
  PF_ParamValue value;
  char value_str[PF_MAX_PARAM_VALUE_LEN + 1];
  char value_desc[PF_MAX_PARAM_DESCRIPTION_LEN + 1];
  PF_ParamValue valid_min, valid_max, slider_min, slider_max, dephault;
} PF_SliderDef;

typedef struct {
  PF_Fixed value;
  char value_str[PF_MAX_PARAM_VALUE_LEN + 1];
  char value_desc[PF_MAX_PARAM_DESCRIPTION_LEN + 1];
  PF_Fixed valid_min, valid_max, slider_min, slider_max, dephault;
  int16_t precision;  // decimal places shown
  PF_ValueDisplayFlags display_flags;
} PF_FixedSliderDef;

typedef struct {
  PF_Fixed value;  // degrees, not wrapped
  PF_Fixed dephault;
} PF_AngleDef;

typedef struct {
  PF_ParamValue value;
  PF_Boolean dephault;
  char reserved;
  int16_t reserved1;
  union {
    const char* nameptr;
  } u;
} PF_CheckBoxDef;

typedef struct {
  PF_Pixel value;
  PF_Pixel dephault;
} PF_ColorDef;

typedef struct {
  PF_Fixed x_value, y_value;  // layer pixels, origin top-left
  char reserved[3];
  PF_Boolean restrict_bounds;
  PF_Fixed x_dephault, y_dephault;  // percent of the layer
} PF_PointDef;

typedef struct {
  PF_ParamValue value;  // 1-based choice
  int16_t num_choices;
  int16_t dephault;
  union {
    const char* namesptr;  // '|'-separated choices
  } u;
} PF_PopupDef;

typedef union {
  PF_LayerDef ld;
  PF_SliderDef sd;
  PF_FixedSliderDef fd;
  PF_AngleDef ad;
  PF_CheckBoxDef bd;
  PF_ColorDef cd;
  PF_PointDef td;
  PF_PopupDef pd;
} PF_ParamDefUnion;

typedef struct PF_ParamDef {
  union {
    int32_t id;
    PF_ChangeFlags change_flags;
  } uu;
  PF_ParamUIFlags ui_flags;
  int16_t ui_width;
  int16_t ui_height;
  PF_ParamType param_type;
  char name[PF_MAX_EFFECT_PARAM_NAME_LEN + 1];
  PF_ParamFlags flags;
  int32_t unused;
  PF_ParamDefUnion u;
} PF_ParamDef;

typedef PF_ParamDef** PF_ParamList;

typedef PF_Err(PF_CDECL* PF_FuncPtr)(void);

typedef struct {
  PF_Err(PF_CDECL* checkout_param)(PF_ProgPtr effect_ref, PF_ParamIndex index, int32_t what_time, int32_t time_step,
                                   uint32_t time_scale, PF_ParamDef* param);
  PF_Err(PF_CDECL* checkin_param)(PF_ProgPtr effect_ref, PF_ParamDef* param);
  PF_Err(PF_CDECL* add_param)(PF_ProgPtr effect_ref, PF_ParamIndex index, PF_ParamDef* def);
  PF_Err(PF_CDECL* abort)(PF_ProgPtr effect_ref);
  PF_Err(PF_CDECL* progress)(PF_ProgPtr effect_ref, int32_t current, int32_t total);
  PF_FuncPtr register_ui;
  PF_FuncPtr checkout_layer_audio;
  PF_FuncPtr checkin_layer_audio;
  PF_FuncPtr get_audio_data;
  void* reserved_str[3];
  int32_t reserved[10];
} PF_InteractCallbacks;

typedef double(PF_CDECL* PF_AnsiFn1)(double);
typedef double(PF_CDECL* PF_AnsiFn2)(double, double);

typedef struct {
  PF_AnsiFn1 atan;
  PF_AnsiFn2 atan2;
  PF_AnsiFn1 ceil;
  PF_AnsiFn1 cos;
  PF_AnsiFn1 exp;
  PF_AnsiFn1 fabs;
  PF_AnsiFn1 floor;
  PF_AnsiFn2 fmod;
  PF_AnsiFn2 hypot;
  PF_AnsiFn1 log;
  PF_AnsiFn1 log10;
  PF_AnsiFn2 pow;
  PF_AnsiFn1 sin;
  PF_AnsiFn1 sqrt;
  PF_AnsiFn1 tan;
  int(PF_CDECL* sprintf)(char* dst, const char* fmt, ...);
  char*(PF_CDECL* strcpy)(char* dst, const char* src);
  PF_AnsiFn1 asin;
  PF_AnsiFn1 acos;
  int32_t ansi_procs[1];
} PF_ANSICallbacks;

typedef struct {
  PF_FuncPtr RGBtoHLS, HLStoRGB, RGBtoYIQ, YIQtoRGB, Luminance, Hue, Lightness, Saturation;
} PF_ColorCallbacks;

typedef struct {
  PF_FuncPtr begin_sampling;
  PF_FuncPtr subpixel_sample;
  PF_FuncPtr area_sample;
  PF_FuncPtr get_batch_func;
  PF_FuncPtr end_sampling;
  PF_FuncPtr composite_rect;
  PF_FuncPtr blend;
  PF_FuncPtr convolve;
  PF_Err(PF_CDECL* copy)(PF_ProgPtr effect_ref, PF_EffectWorld* src, PF_EffectWorld* dst, PF_Rect* src_r,
                         PF_Rect* dst_r);
  PF_Err(PF_CDECL* fill)(PF_ProgPtr effect_ref, const PF_Pixel* color, const PF_Rect* dst_rect, PF_EffectWorld* world);
  PF_FuncPtr gaussian_kernel;
  PF_FuncPtr iterate;
  PF_FuncPtr premultiply;
  PF_FuncPtr premultiply_color;
  PF_Err(PF_CDECL* new_world)(PF_ProgPtr effect_ref, int32_t width, int32_t height, PF_NewWorldFlags flags,
                              PF_EffectWorld* world);
  PF_FuncPtr get_platform_refs;
  PF_Err(PF_CDECL* dispose_world)(PF_ProgPtr effect_ref, PF_EffectWorld* world);
  PF_FuncPtr iterate_origin;
  PF_FuncPtr iterate_lut;
  PF_FuncPtr transfer_rect;
  PF_FuncPtr transform_world;
  PF_FuncPtr host_new_handle;
  PF_FuncPtr host_lock_handle;
  PF_FuncPtr host_unlock_handle;
  PF_FuncPtr host_dispose_handle;
  PF_FuncPtr get_callback_addr;
  PF_FuncPtr app;
  PF_ANSICallbacks ansi;
  PF_ColorCallbacks colorCB;
  PF_FuncPtr get_platform_data;
  PF_FuncPtr get_cgraf_data;
  PF_FuncPtr host_get_handle_size;
  PF_FuncPtr iterate_origin_non_clip_src;
  PF_FuncPtr iterate_generic;
  PF_FuncPtr host_resize_handle;
  PF_FuncPtr subpixel_sample16;
  PF_FuncPtr area_sample16;
  PF_FuncPtr fill16;
  PF_FuncPtr premultiply_color16;
  PF_FuncPtr iterate16;
  PF_FuncPtr iterate_origin16;
  PF_FuncPtr iterate_origin_non_clip_src16;
  PF_FuncPtr get_pixel_data8;
  PF_FuncPtr get_pixel_data16;
  int32_t reserved[1];
} PF_UtilCallbacks;

typedef struct PF_InData {
  PF_InteractCallbacks inter;
  PF_UtilCallbacks* utils;
  PF_ProgPtr effect_ref;
  PF_Quality quality;
  PF_SpecVersion version;
  int32_t serial_num;
  int32_t appl_id;
  int32_t num_params;
  int32_t reserved;
  int32_t what_cpu;
  int32_t what_fpu;
  void* qd_globals;
  int32_t current_time;
  int32_t time_step;
  int32_t total_time;
  int32_t local_time_step;
  uint32_t time_scale;
  PF_Field field;
  PF_Fixed shutter_angle;
  int32_t width;
  int32_t height;
  PF_Rect extent_hint;
  int32_t output_origin_x;
  int32_t output_origin_y;
  PF_RationalScale downsample_x;
  PF_RationalScale downsample_y;
  PF_RationalScale pixel_aspect_ratio;
  PF_InFlags in_flags;
  PF_Handle global_data;
  PF_Handle sequence_data;
  PF_Handle frame_data;
  // Fields below are later additions; a host of interface version 11.0 may not have them.
  int32_t start_sampL;
  int32_t dur_sampL;
  int32_t total_sampL;
  PF_SoundWorld src_snd;
  void* pica_basicP;
  int32_t pre_effect_source_origin_x;
  int32_t pre_effect_source_origin_y;
  PF_Fixed shutter_phase;
} PF_InData;

typedef struct PF_OutData {
  uint32_t my_version;
  char name[PF_MAX_EFFECT_NAME_LEN + 1];
  PF_Handle global_data;
  int32_t num_params;
  PF_Handle sequence_data;
  int32_t flat_sdata_size;
  PF_Handle frame_data;
  int32_t width;
  int32_t height;
  PF_Point origin;
  PF_OutFlags out_flags;
  char return_msg[PF_MAX_EFFECT_MSG_LEN + 1];
  // Later additions: never written by this plug-in.
  int32_t start_sampL;
  int32_t dur_sampL;
  PF_SoundWorld dest_snd;
  PF_OutFlags2 out_flags2;
} PF_OutData;

// The entry point every host calls (exported as "main").
typedef PF_Err(PF_CDECL* PF_EntryFunc)(PF_Cmd cmd, PF_InData* in_data, PF_OutData* out_data, PF_ParamDef* params[],
                                       PF_LayerDef* output, void* extra);

enum {
  PF_Cmd_ABOUT = 0,
  PF_Cmd_GLOBAL_SETUP = 1,
  PF_Cmd_UNUSED_0 = 2,
  PF_Cmd_GLOBAL_SETDOWN = 3,
  PF_Cmd_PARAMS_SETUP = 4,
  PF_Cmd_SEQUENCE_SETUP = 5,
  PF_Cmd_SEQUENCE_RESETUP = 6,
  PF_Cmd_SEQUENCE_FLATTEN = 7,
  PF_Cmd_SEQUENCE_SETDOWN = 8,
  PF_Cmd_DO_DIALOG = 9,
  PF_Cmd_FRAME_SETUP = 10,
  PF_Cmd_RENDER = 11,
  PF_Cmd_FRAME_SETDOWN = 12,
  PF_Cmd_USER_CHANGED_PARAM = 13,
  PF_Cmd_UPDATE_PARAMS_UI = 14,
  PF_Cmd_EVENT = 15,
  PF_Cmd_GET_EXTERNAL_DEPENDENCIES = 16,
  PF_Cmd_COMPLETELY_GENERAL = 17
};

enum {
  PF_Err_NONE = 0,
  PF_Err_OUT_OF_MEMORY = 4,
  PF_Err_INTERNAL_STRUCT_DAMAGED = 512,
  PF_Err_INVALID_INDEX = 513,
  PF_Err_UNRECOGNIZED_PARAM_TYPE = 514,
  PF_Err_INVALID_CALLBACK = 515,
  PF_Err_BAD_CALLBACK_PARAM = 516,
  PF_Interrupt_CANCEL = 517
};

enum {
  PF_OutFlag_NONE = 0,
  PF_OutFlag_KEEP_RESOURCE_OPEN = 0x1,
  PF_OutFlag_WIDE_TIME_INPUT = 0x2,
  PF_OutFlag_NON_PARAM_VARY = 0x4,
  PF_OutFlag_USE_OUTPUT_EXTENT = 0x40,
  PF_OutFlag_DISPLAY_ERROR_MESSAGE = 0x100
};

enum {
  PF_Param_RESERVED = -1,
  PF_Param_LAYER = 0,
  PF_Param_SLIDER = 1,
  PF_Param_FIX_SLIDER = 2,
  PF_Param_ANGLE = 3,
  PF_Param_CHECKBOX = 4,
  PF_Param_COLOR = 5,
  PF_Param_POINT = 6,
  PF_Param_POPUP = 7
};

enum { PF_ParamFlag_COLLAPSE_TWIRLY = 0x20 };
enum { PF_ChangeFlag_NONE = 0, PF_ChangeFlag_CHANGED_VALUE = 0x1 };
enum { PF_Quality_LO = 0, PF_Quality_HI = 1 };
enum { PF_Field_FRAME = 0, PF_Field_UPPER = 1, PF_Field_LOWER = 2 };
enum { PF_Stage_DEVELOP = 0, PF_Stage_ALPHA = 1, PF_Stage_BETA = 2, PF_Stage_RELEASE = 3 };
enum { PF_LayerDefault_MYSELF = -1, PF_LayerDefault_NONE = 0 };
enum { PF_NewWorldFlag_NONE = 0, PF_NewWorldFlag_CLEAR_PIXELS = 0x1 };
enum { PF_WorldFlag_DEEP = 0x1, PF_WorldFlag_WRITEABLE = 0x2 };

#ifdef __cplusplus
}
#endif

#if defined(TARVO_HOST_PACKED)
#pragma pack(pop)
#undef TARVO_HOST_PACKED
#endif
