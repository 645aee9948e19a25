# SPDX-License-Identifier: Apache-2.0
"""The client library exports the documented classes, each name with a version, and no name that is not ours.

Usage: exports.py NM LIBRARY [CLASS::MEMBER...]; with members, these in place of the client library's.
"""
import re
import subprocess
import sys

OPERATIONS = """RegisterGameCallback UnRegisterGameCallback CallAuth UpdateGameInfo ReportGameEvent SyncAppType
    ReportRenderThread StartGetGpuPerfInfo StopGetGpuPerfInfo GetDeviceInfo NotifyGameEvent QueryAppResourceInfos
    GetAppPrioritys NotifyAppResourceDownLoadResults QueryGameState GetSystemFunctionStatus""".split()
# What a program has to link to: one member of each class that is not inline.
MEMBERS = [f"Veltra::VeltraClient::{operation}" for operation in OPERATIONS] + [f"Veltra::{member}" for member in """
    VeltraClientProxy::GetServiceProxy VeltraClientProxy::RegisterGameCallback VeltraCustomProxy::QueryGameState
    VeltraServerProxy::RegisterCallBack VeltraSaLoadCallback::OnLoadSystemAbilitySuccess
    VeltraSaDeathRecipient::OnRemoteDied GameEventCallbackStub::OnRemoteRequest GameEventCallback::AddCallback
    GpuCounterCallBackStub::OnRemoteRequest GpuCounterCallBack::SetProcessCallback
    ResourcePreDownloadCallbackStub::OnRemoteRequest ResourcePreDownloadCallback::SetGetAppPrioritysCallback
    AppResourceInfo::Unmarshalling GpuPerfInfo::Unmarshalling GameSceneBundle::Marshalling
    JsonUtils::StringToJson""".split()] + [
    # A program that asks for the instance gets the library's, not one of its own.
    f"DelayedRefSingleton<TAVO::Veltra::{name}>::GetInstance" for name in ("VeltraClientProxy", "VeltraCustomProxy")]
# Every exported class that a program can make an object of.
CONSTRUCTORS = """VeltraClient VeltraClientProxy VeltraCustomProxy VeltraServerProxy VeltraSaLoadCallback
    VeltraSaDeathRecipient GameEventCallbackStub GameEventCallback GpuCounterCallBackStub GpuCounterCallBack
    ResourcePreDownloadCallbackStub ResourcePreDownloadCallback AppResourceInfo GpuPerfInfo GameSceneBundle""".split()
MEMBERS += [f"Veltra::{name}::{name}" for name in CONSTRUCTORS]
PRIVATE = ["VeltraClientProxy::FindService", "VeltraClientProxy::WaitForServiceProxy",
           "GameSceneBundle::IsWithinBounds", "GameSceneBundle::ReadFields"]
OURS = re.compile(r"((construction )?vtable for |VTT for |typeinfo (name )?for |guard variable for |"
                  r"(non-)?virtual thunk to )?TAVO::(Veltra::|DelayedRefSingleton<TAVO::Veltra::)")
VERSION = re.compile(r"@@VELTRA_\d+(\.\d+)?$")


def main():
    nm, library, *members = sys.argv[1:]
    members = [f"Veltra::{member}" for member in members] or MEMBERS
    lines = subprocess.run([nm, "-DC", "--defined-only", library], check=True, capture_output=True,
                           text=True).stdout.splitlines()
    names = [line.split(maxsplit=2)[2] for line in lines if line.split()[1] != "A"]  # those are version nodes
    missing = [member for member in members if not any(f"TAVO::{member}(" in name or f"TAVO::{member}[abi" in name
                                                       for name in names)]
    private = [member for member in PRIVATE if any(f"TAVO::Veltra::{member}(" in name for name in names)]
    strangers = [name for name in names if not OURS.match(name)]
    without_version = [name for name in names if not VERSION.search(name)]
    for name in missing:
        print(f"not exported: {name}")
    for name in strangers:
        print(f"exported, and not ours: {name}")
    for name in private:
        print(f"exported, and private: {name}")
    for name in without_version:
        print(f"exported without a version: {name}")
    return 1 if missing or strangers or private or without_version else 0


if __name__ == "__main__":
    sys.exit(main())
