#pragma once
// What every location service of this platform keeps alike: the delegate (held weakly), whether
// background updates are allowed, and the desired accuracy, each read and written under one lock.
// A provider derives from this and implements positions and ranging.

#include <memory>
#include <mutex>

#include "drovel/platform/LocationProvider.h"

namespace drovel::platform {

class LocationProviderSettings : public LocationProvider {
public:
    void setDelegate(std::weak_ptr<LocationProviderDelegate> delegate) override {
        std::lock_guard lock(settingsMutex_);
        delegate_ = std::move(delegate);
    }
    std::weak_ptr<LocationProviderDelegate> delegate() const override {
        std::lock_guard lock(settingsMutex_);
        return delegate_;
    }
    void setAllowsBackgroundLocationUpdates(bool allows) override {
        std::lock_guard lock(settingsMutex_);
        allowsBackgroundLocationUpdates_ = allows;
    }
    bool allowsBackgroundLocationUpdates() const override {
        std::lock_guard lock(settingsMutex_);
        return allowsBackgroundLocationUpdates_;
    }
    void setDesiredAccuracy(double accuracy) override {
        std::lock_guard lock(settingsMutex_);
        desiredAccuracy_ = accuracy;
    }
    double desiredAccuracy() const override {
        std::lock_guard lock(settingsMutex_);
        return desiredAccuracy_;
    }

private:
    mutable std::mutex settingsMutex_;
    std::weak_ptr<LocationProviderDelegate> delegate_;
    bool allowsBackgroundLocationUpdates_ = false;
    double desiredAccuracy_ = kLocationAccuracyBest;
};

}  // namespace drovel::platform
