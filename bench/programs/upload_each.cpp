// An export step that uploads the files of the directory UPLOAD_DIR with one request each: measures the cost
// of the protocol for a plug-in that does not upload directories.

#include <zarn/arvlapp/agent.h>

#include <cstdlib>
#include <filesystem>

using namespace ZARN::ARVLAPP;

namespace {

const std::filesystem::path kStore = "/files";

bool upload(Agent &agent, const std::filesystem::path &file) {
  FileInfo source;
  source.setPath(file);
  source.setRegType();
  UploadInfo upload;
  upload.setSource(source);
  upload.setDestinationPath(kStore / file.filename());
  return agent.upload(upload);
}

bool uploadAll(Agent &agent) {
  if (!agent.createDir(kStore)) {
    return false;
  }
  for (const auto &entry : std::filesystem::directory_iterator(std::getenv("UPLOAD_DIR"))) {
    if (!upload(agent, entry.path())) {
      return false;
    }
  }
  agent.setAppDataVersion(1, 0);
  return true;
}

}  // namespace

int main(int argc, char **argv) {
  Agent agent;
  if (!agent.init(argc, argv)) {
    return EXIT_FAILURE;
  }
  if (uploadAll(agent)) {
    agent.setSuccess();
  }
  return EXIT_SUCCESS;
}
