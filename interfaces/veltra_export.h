// SPDX-License-Identifier: Apache-2.0
// The one mark for symbols that leave the client library; everything else is built hidden.
#ifndef VELTRA_EXPORT_H
#define VELTRA_EXPORT_H

#define VELTRA_EXPORT __attribute__((visibility("default")))

#endif
