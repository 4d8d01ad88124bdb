#include "Common/ClientTarget.h"

#include "Common/Protocols.h"
#include "Common/TypedCall.h"

namespace kelvane {
namespace {

constexpr MethodBinding<ClientTarget> bindings[] = {
    bind<ClientTarget, "fileChanged:", &ClientTarget::fileChanged>(),
    bind<ClientTarget, "filesChanged:", &ClientTarget::filesChanged>(),
    bind<ClientTarget, "folderChanged:", &ClientTarget::folderChanged>(),
    bind<ClientTarget, "foldersChanged:", &ClientTarget::foldersChanged>(),
    bind<ClientTarget, "stateChanged:", &ClientTarget::stateChanged>(),
    bind<ClientTarget, "statesChanged:", &ClientTarget::statesChanged>(),
    bind<ClientTarget, "setAlertString:", &ClientTarget::setAlertString>(),
    bind<ClientTarget, "setAlertStrings:", &ClientTarget::setAlertStrings>(),
};

} // namespace

Protocol ClientTarget::methods() const {
    return KelvaneClientProtocol;
}

void ClientTarget::invoke(Invocation& invocation) {
    invokeBound<ClientTarget>(bindings, *this, invocation);
}

} // namespace kelvane
