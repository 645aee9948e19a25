// SPDX-License-Identifier: Apache-2.0
// The one mark for symbols that leave libtavo; everything else is built hidden.
#ifndef TAVO_EXPORT_H
#define TAVO_EXPORT_H

#define TAVO_EXPORT __attribute__((visibility("default")))

#endif
