#pragma once

#include <QtCore/QLatin1String>
#include <QtCore/qglobal.h>

#include <memory>

namespace hostapi {

/// An object that hands out other objects by the name of the protocol they conform to.
///
/// The host's API manager is one; so is every object that it hands out. Classes of this folder have
/// default visibility, so that a host and a module that were built apart agree on their types.
class Q_DECL_EXPORT PROAPIObject {
public:
    virtual ~PROAPIObject() = default;

    /// The host's object for `protocol`, or an empty pointer where the host has none. Any thread.
    virtual std::shared_ptr<PROAPIObject> apiForProtocol(QLatin1String protocol) = 0;
};

/// The host's object for the protocol class `Protocol` (by its `kProtocol` name), or an empty pointer
/// where the host has none or hands out an object of another class.
template <typename Protocol>
std::shared_ptr<Protocol> apiForProtocol(PROAPIObject& manager) {
    return std::dynamic_pointer_cast<Protocol>(manager.apiForProtocol(Protocol::kProtocol));
}

} // namespace hostapi
