// SPDX-License-Identifier: Apache-2.0
// What is pushed, as watchers get it.
#ifndef VELTRA_SERVICE_PUSH_NOTES_H
#define VELTRA_SERVICE_PUSH_NOTES_H

#include <string>
#include <vector>

#include "veltra_records.h"
#include "watch/note.h"

namespace TAVO::Veltra {

void Describe(const GameCallbackEventInfo& info, Note& note);
void Describe(const std::vector<GpuPerfInfo>& samples, Note& note);  // the counters that each sample has
void Describe(const AppResourceInfos& infos, Note& note);
void Describe(const std::vector<std::string>& names, Note& note);

}  // namespace TAVO::Veltra

#endif
