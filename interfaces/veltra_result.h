// SPDX-License-Identifier: Apache-2.0
// The result codes that the library reports by itself; any other non-zero result is the service's own code.
#ifndef VELTRA_RESULT_H
#define VELTRA_RESULT_H

#include <cstdint>

namespace TAVO::Veltra {

constexpr int32_t RESULT_OK = 0;
// An empty list of bundle names was given to QueryAppResourceInfos; nothing was sent.
constexpr int32_t RESULT_NO_BUNDLE_NAMES = 1010310001;
// Unregistering while marked registered, but the object that holds the callbacks no longer exists.
constexpr int32_t RESULT_CALLBACK_MISSING = 1010310008;
// The interface token could not be written to a request, or a callback request has the token of another interface.
constexpr int32_t RESULT_TOKEN_REFUSED = 1010310010;
// A callback request could not be decoded, or its reply not written. Seen by the service only.
constexpr int32_t RESULT_BAD_PARCEL = 1010310012;
// The service is not there and could not be loaded, died during the call, or did not answer in time.
constexpr int32_t RESULT_NO_SERVICE = 1010310014;
// Unregistering when nothing is registered; also: the service refused the registration of game events.
constexpr int32_t RESULT_NOT_REGISTERED = 1010310016;
// The service refused to unregister game events; the registration has ended, and the next one sends a new request.
constexpr int32_t RESULT_UNREGISTER_REFUSED = 1010310018;
// The service refused to start or to stop the GPU counter stream.
constexpr int32_t RESULT_GPU_REFUSED = 1010310019;
// A device-state text is no JSON object or has no usable "tempLevel". Never a result of GetDeviceInfo.
constexpr int32_t RESULT_BAD_DEVICE_STATE = 1010310021;
// An answer about priorities announced more than 100 texts. Seen by the service only.
constexpr int32_t RESULT_TOO_MANY_PRIORITIES = 1010310023;
// The service refused the query of app priorities.
constexpr int32_t RESULT_PRIORITIES_REFUSED = 1010310024;
// The service refused the download results.
constexpr int32_t RESULT_DOWNLOAD_RESULTS_REFUSED = 1010310025;
// Only from ReportRenderThread: there is no service.
constexpr int32_t RESULT_RENDER_NO_SERVICE = -1;

}  // namespace TAVO::Veltra

#endif
