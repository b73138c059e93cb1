#pragma once

#if defined(_WIN32)
#if defined(BACKUP_RUNTIME_BUILD)
#define BACKUP_RUNTIME_API __declspec(dllexport)
#else
#define BACKUP_RUNTIME_API __declspec(dllimport)
#endif
#else
#define BACKUP_RUNTIME_API __attribute__((visibility("default")))
#endif
