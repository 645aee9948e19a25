// SPDX-License-Identifier: Apache-2.0
// Everything of the host platform.
#ifndef TAVO_TAVO_H
#define TAVO_TAVO_H

#include "tavo/calling_peer.h"
#include "tavo/delayed_ref_singleton.h"
#include "tavo/export.h"
#include "tavo/ipc_object_stub.h"
#include "tavo/ipc_status.h"
#include "tavo/ipc_threads.h"
#include "tavo/iremote_broker.h"
#include "tavo/iremote_object.h"
#include "tavo/iremote_proxy.h"
#include "tavo/iremote_stub.h"
#include "tavo/isystem_ability_load_callback.h"
#include "tavo/isystem_ability_manager.h"
#include "tavo/large_pages.h"
#include "tavo/message_option.h"
#include "tavo/message_parcel.h"
#include "tavo/mutex.h"
#include "tavo/parcel.h"
#include "tavo/peer_holder.h"
#include "tavo/read_vector_from_parcel.h"
#include "tavo/ref_base.h"
#include "tavo/runtime_directory.h"
#include "tavo/scrivo_print.h"
#include "tavo/system_ability_manager_client.h"
#include "tavo/typed_request.h"

#endif
