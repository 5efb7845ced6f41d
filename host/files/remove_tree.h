// Removes a file or a whole tree, however deep it is.
#ifndef ARVL_HOST_FILES_REMOVE_TREE_H_
#define ARVL_HOST_FILES_REMOVE_TREE_H_

#include "files/place.h"

namespace arvl_host {

// Removes the entry and everything below it. Uses a few descriptors at any depth, follows no link, and gives
// itself access to directories that deny it. Succeeds if the entry does not exist. Removes as much as
// possible, then throws StoreError with the first error.
void removeTree(const Place &place);

}  // namespace arvl_host

#endif  // ARVL_HOST_FILES_REMOVE_TREE_H_
