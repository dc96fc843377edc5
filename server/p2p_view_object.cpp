#include "server/p2p_view_object.h"

namespace corvid::server {

HRESULT P2PViewObject::SearchOnP2P(BSTR, BSTR) {
    // The page's script does not care what became of its search, so this always succeeds. The
    // search itself is the main view's to run; until a main view stands in the tab there is
    // nowhere to run it.
    return S_OK;
}

} // namespace corvid::server
