// The API's reads and writes of the archive are the tool's own commands, run as a child each
// (`qkp --home H --format json journal …`): what the page shows is what the tool prints, the
// archive's connections stay in processes of their own, and a slow archive holds up only the
// request that asked.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace qk::service {

struct ToolAnswer {
  int status = -1;  // the exit status; -1 when it could not be run or did not end in time
  std::string out, err;
};

class ToolRunner {
 public:
  ToolRunner(std::string program, std::string installation)
      : program_(std::move(program)), installation_(std::move(installation)) {}
  // Starts `qkp --home H --format json ARGS…` in a process group of its own with the default
  // signal actions (a stop reaches it only from the service, once it may finish what it does),
  // its stdout into a pipe whose reading end is put in *out, its stderr into `err` (-1: the
  // service's). The pid, or -1 with the reason in *why.
  pid_t start(const std::vector<std::string>& args, int* out, int err, std::string* why) const;
  // Runs it and gathers what it prints; ended after `timeout` seconds.
  ToolAnswer run(const std::vector<std::string>& args, double timeout = 30) const;

 private:
  std::string program_, installation_;
};

}  // namespace qk::service
