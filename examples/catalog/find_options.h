#pragma once

namespace CLI {
class App;
}
struct File_Query;
struct Request_Source;

/// Give a command the options of a query, or those of a request.
void add_query_options(CLI::App& command, File_Query& query);
void add_request_options(CLI::App& command, Request_Source& request);
