/// The marks of exported and of local names.
///
/// Both libraries are built with hidden visibility. A class marked ZARN_EXPORT is part of the binary
/// interface that existing plug-ins link. A class marked ZARN_LOCAL is not, even if it is nested in an
/// exported class.
#ifndef ZARN_VISIBILITY_H_
#define ZARN_VISIBILITY_H_

#define ZARN_EXPORT __attribute__((visibility("default")))
#define ZARN_LOCAL __attribute__((visibility("hidden")))

#endif  // ZARN_VISIBILITY_H_
