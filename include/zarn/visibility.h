/// The one thing this header carries: the mark of an exported name.
///
/// Both libraries are built with hidden visibility; a class marked ZARN_EXPORT is part of the
/// binary interface that existing plug-ins link, a class marked ZARN_LOCAL is not, even when it is
/// nested in an exported one.
#ifndef ZARN_VISIBILITY_H_
#define ZARN_VISIBILITY_H_

#define ZARN_EXPORT __attribute__((visibility("default")))
#define ZARN_LOCAL __attribute__((visibility("hidden")))

#endif  // ZARN_VISIBILITY_H_
