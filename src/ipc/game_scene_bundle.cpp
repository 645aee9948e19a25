// SPDX-License-Identifier: Apache-2.0
#include "game_scene_bundle.h"

#include <algorithm>
#include <memory>
#include <new>
#include <utility>

namespace TAVO::Veltra {

GameSceneBundle::GameSceneBundle() = default;

bool GameSceneBundle::IsWithinBounds() const
{
    return attributes.size() <= MAX_ATTRIBUTES && sceneName.size() <= MAX_TEXT_BYTES &&
           std::all_of(attributes.begin(), attributes.end(), [](const auto& attribute) {
               return attribute.first.size() <= MAX_TEXT_BYTES && attribute.second.size() <= MAX_TEXT_BYTES;
           });
}

bool GameSceneBundle::Marshalling(Parcel& parcel) const
{
    // Checked on both sides: the sender so that a game gets its error at once, the receiver because it trusts no
    // sender.
    if (!IsWithinBounds() || !parcel.WriteInt32(sceneId) || !parcel.WriteString(sceneName) ||
        !parcel.WriteInt32(static_cast<int32_t>(attributes.size()))) {
        return false;
    }
    return std::all_of(attributes.begin(), attributes.end(), [&parcel](const auto& attribute) {
        return parcel.WriteString(attribute.first) && parcel.WriteString(attribute.second);
    });
}

bool GameSceneBundle::ReadFields(Parcel& parcel)
{
    int32_t count = 0;
    if (!parcel.ReadInt32(sceneId) || !parcel.ReadString(sceneName) || !parcel.ReadInt32(count) || count < 0 ||
        static_cast<size_t>(count) > MAX_ATTRIBUTES) {
        return false;
    }
    for (int32_t i = 0; i < count; ++i) {
        std::string key;
        std::string value;
        if (!parcel.ReadString(key) || !parcel.ReadString(value) ||
            // Strictly ascending keys: equal ones would silently drop an attribute, and each insertion is at the end.
            (!attributes.empty() && key <= attributes.rbegin()->first)) {
            return false;
        }
        attributes.emplace_hint(attributes.end(), std::move(key), std::move(value));
    }
    return IsWithinBounds();
}

GameSceneBundle* GameSceneBundle::Unmarshalling(Parcel& parcel)
try {
    std::unique_ptr<GameSceneBundle> bundle(new (std::nothrow) GameSceneBundle());
    return bundle != nullptr && bundle->ReadFields(parcel) ? bundle.release() : nullptr;
} catch (...) {  // no memory for a text
    return nullptr;
}

}  // namespace TAVO::Veltra
