#pragma once

#if defined(_WIN32)
#if defined(BACKUP_STORE_BUILD)
#define BACKUP_STORE_API __declspec(dllexport)
#else
#define BACKUP_STORE_API __declspec(dllimport)
#endif
#else
#define BACKUP_STORE_API __attribute__((visibility("default")))
#endif
