// SPDX-License-Identifier: Apache-2.0
// The control side of the service, for tools of the same user. docs/control.md has every document.
#ifndef VELTRA_SERVICE_VELTRA_CONTROL_H
#define VELTRA_SERVICE_VELTRA_CONTROL_H

#include <cstdint>
#include <string>

#include "control/control_stubs.h"
#include "veltra_service.h"

namespace TAVO::Veltra {

class VeltraControl final : public VeltraControlStub {
public:
    explicit VeltraControl(const sptr<VeltraService>& service) : service_(service), view_(service->View()) {}

    int32_t Describe(std::string& answer) override;
    int32_t Explain(std::string& answer) override;
    int32_t Watch(const std::string& filter, const sptr<IVeltraWatcher>& watcher, std::string& answer) override;
    int32_t Unwatch() override;
    int32_t Simulate(const std::string& command, std::string& answer) override;

private:
    const sptr<VeltraService> service_;  // owns what the view shows
    const ServiceView view_;
};

}  // namespace TAVO::Veltra

#endif
