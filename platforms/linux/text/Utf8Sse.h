// Utf8Sse.h - Whether UTF-8 is converted 16 bytes at a time.
#pragma once

#ifndef VX_UTF8_SSE
#if defined(__SSE4_1__) && !defined(VX_PLAIN)
#define VX_UTF8_SSE 1
#else
#define VX_UTF8_SSE 0
#endif
#endif
