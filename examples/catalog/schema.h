#pragma once

class Store;

/// Creates the catalogue's tables:
///
///   hosts     a machine, by name
///   runs      one indexing of a directory of a host
///   run_ends  how and when a run ended; a run without one is still running, or died
///   files     what a run found; `retired` is null for all that counts
///
/// Keys are uuids of 16 bytes, times POSIX seconds, names and paths the bytes they are. Throws Store_Error.
void create_schema(Store& store);
