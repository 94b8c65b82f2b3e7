/* varnok_export.h - marks the internal operations and variables that the library exports for its
 * tests, tools and debuggers. They are no part of the public interface. */
#ifndef VARNOK_EXPORT_H
#define VARNOK_EXPORT_H

#define VARNOK_PRIVATE __attribute__((visibility("default")))

#endif
