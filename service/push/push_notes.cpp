// SPDX-License-Identifier: Apache-2.0
// Each function notes the fields of one kind of push under the names of the record. It runs only while there is a
// watcher, on the pool thread that sends the push. Lists end at Note::MAX_LIST_ITEMS, so that a large batch does not
// fill the note; the list still holds the full count. Counters that a sample does not have are left out.
#include "push/push_notes.h"

#include <algorithm>

#include "base/gpu_counters.h"

namespace TAVO::Veltra {

namespace {

// One object for each of the first items.
template <typename Item, typename DescribeItem>
void DescribeList(const char* name, const std::vector<Item>& items, Note& note, DescribeItem describe)
{
    note.BeginList(name, items.size());
    for (size_t i = 0; i < std::min(items.size(), Note::MAX_LIST_ITEMS); ++i) {
        note.BeginItem(i);
        describe(items[i]);
        note.EndItem();
    }
    note.End();
}

}  // namespace

void Describe(const GameCallbackEventInfo& info, Note& note)
{
    note.Text("eventText", info.eventText);
    note.Number("tempLevel", info.tempLevel);
    note.Number("gpuLoadLevel", info.gpuLoadLevel);
    note.Number("vertexLoadLevel", info.vertexLoadLevel);
    note.Number("fragmentLoadLevel", info.fragmentLoadLevel);
    note.Number("textureLoadLevel", info.textureLoadLevel);
    note.Number("bandwidthLoadLevel", info.bandwidthLoadLevel);
    note.Number("currentFrequency", info.currentFrequency);
    note.Number("thermalMargin", info.thermalMargin);
    note.Number("thermalTrend", info.thermalTrend);
    note.Number("extraValue", info.extraValue);
}

void Describe(const std::vector<GpuPerfInfo>& samples, Note& note)
{
    DescribeList("samples", samples, note, [&note](const GpuPerfInfo& sample) {
        note.Number("gpu", sample.int1);
        note.Number("number", sample.long2);
        for (size_t i = 0; i < GPU_COUNTER_NAMES.size(); ++i) {
            if (const auto value = GpuCounterOf(sample, static_cast<GpuCounter>(i))) {
                note.Number(GPU_COUNTER_NAMES[i], static_cast<int64_t>(*value));
            }
        }
    });
}

void Describe(const AppResourceInfos& infos, Note& note)
{
    DescribeList("resourceInfos", infos.resourceInfos, note, [&note](const AppResourceInfo& info) {
        note.Text("text1", info.text1);
        note.Number("int1", info.int1);
        note.Number("int2", info.int2);
        note.Text("text2", info.text2);
        note.Text("text3", info.text3);
        note.Number("long1", info.long1);
        note.Number("int3", info.int3);
        note.Text("text4", info.text4);
    });
}

void Describe(const std::vector<std::string>& names, Note& note)
{
    note.Texts("names", names);
}

}  // namespace TAVO::Veltra
