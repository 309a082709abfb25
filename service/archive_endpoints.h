// The API's endpoints that read or change the archive: a line's pending records, the journal and
// the runs a page at a time, marking records pending, and the pictures of layouts and images.
// Each is a tool command run as a child (tool_runner.h); docs/service.md lists them.
#pragma once

namespace httplib {
class Server;
}

namespace qk::service {

class ToolRunner;

void add_archive_endpoints(httplib::Server& s, const ToolRunner& tool);

}  // namespace qk::service
