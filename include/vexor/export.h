/* Symbol visibility and calling conventions shared by every public header. */
#ifndef VEXOR_EXPORT_H
#define VEXOR_EXPORT_H

#if defined(VEXOR_BUILDING_LIBRARY)
#define VX_API __attribute__((visibility("default")))
#else
#define VX_API
#endif

#ifdef __cplusplus
#define VX_EXTERN_C_BEGIN extern "C" {
#define VX_EXTERN_C_END }
#else
#define VX_EXTERN_C_BEGIN
#define VX_EXTERN_C_END
#endif

#endif
