// SPDX-License-Identifier: Apache-2.0
// A scene of the game, for NotifyGameEvent: an id, a name and text attributes.
#ifndef VELTRA_GAME_SCENE_BUNDLE_H
#define VELTRA_GAME_SCENE_BUNDLE_H

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>

#include "tavo/parcel.h"
#include "veltra_export.h"

namespace TAVO::Veltra {

// The library reads none of the fields: it sends what Marshalling writes. A framework may derive from the class and
// override Marshalling to send a record that it has agreed upon with its own service; the service of this project reads
// the encoding below.
class VELTRA_EXPORT GameSceneBundle : public TAVO::Parcelable {
public:
    GameSceneBundle();

    static constexpr size_t MAX_ATTRIBUTES = 64;
    static constexpr size_t MAX_TEXT_BYTES = 4096;  // of the name, of each key and of each value

    // Int32 sceneId, String sceneName, Int32 number of attributes, then key and value of each by ascending key.
    // False, and nothing written, beyond the bounds above; the service refuses the scene then.
    bool Marshalling(TAVO::Parcel& parcel) const override;
    // A new record that the caller owns. Null if it is incomplete, exceeds the bounds, has attributes twice or out of
    // order, or if out of memory. Does not throw.
    static GameSceneBundle* Unmarshalling(TAVO::Parcel& parcel);

    int32_t sceneId = 0;  // the game's own number for the scene
    std::string sceneName;
    std::map<std::string, std::string> attributes;

private:
    VELTRA_HIDDEN bool IsWithinBounds() const;
    VELTRA_HIDDEN bool ReadFields(TAVO::Parcel& parcel);
};

}  // namespace TAVO::Veltra

#endif
