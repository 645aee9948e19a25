// SPDX-License-Identifier: Apache-2.0
#ifndef PORTING_IPC_THREADS_H
#define PORTING_IPC_THREADS_H

namespace TAVO {

class PLATFORM_NAME("IpcThreads") IpcThreads {
public:
    PLATFORM_NAME("IpcThreads::IsForkedChild") static bool IsForkedChild();
};

}  // namespace TAVO

#endif
