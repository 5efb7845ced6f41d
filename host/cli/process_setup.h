// Prepares the process for arvl-host.
#ifndef ARVL_HOST_CLI_PROCESS_SETUP_H_
#define ARVL_HOST_CLI_PROCESS_SETUP_H_

namespace arvl_host {

// Opens closed standard streams, raises the limit of descriptors, and ignores SIGPIPE. Call it first.
void setUpProcess();

}  // namespace arvl_host

#endif  // ARVL_HOST_CLI_PROCESS_SETUP_H_
