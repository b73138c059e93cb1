#pragma once

#if defined(_WIN32)
#if defined(BACKUP_SQL_BUILD)
#define BACKUP_SQL_API __declspec(dllexport)
#else
#define BACKUP_SQL_API __declspec(dllimport)
#endif
#else
#define BACKUP_SQL_API __attribute__((visibility("default")))
#endif
