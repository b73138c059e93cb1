#pragma once

#if defined(_WIN32)
#if defined(JSON_SPIRIT_BUILD)
#define JSON_SPIRIT_API __declspec(dllexport)
#else
#define JSON_SPIRIT_API __declspec(dllimport)
#endif
#else
#define JSON_SPIRIT_API __attribute__((visibility("default")))
#endif
