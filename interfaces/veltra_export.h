// SPDX-License-Identifier: Apache-2.0
// The marks for symbols: the library is built hidden, and an exported class exports its members with it.
#ifndef VELTRA_EXPORT_H
#define VELTRA_EXPORT_H

#define VELTRA_EXPORT __attribute__((visibility("default")))
// For private members of an exported class that no inline function calls: they stay inside the library.
#define VELTRA_HIDDEN __attribute__((visibility("hidden")))

#endif
