// Interned names: every attribute, key, keyword and module member that the code looks up.
#include "host/names.h"

#include "host/ref.h"

namespace search_analytics::host {

void Names::create() {
#define SEARCH_ANALYTICS_CREATE(name) \
    name = Ref::steal(PyUnicode_InternFromString(#name)).release();
#define SEARCH_ANALYTICS_CREATE_TEXT(name, text) \
    name = Ref::steal(PyUnicode_InternFromString(text)).release();
    SEARCH_ANALYTICS_NAMES(SEARCH_ANALYTICS_CREATE, SEARCH_ANALYTICS_CREATE_TEXT)
#undef SEARCH_ANALYTICS_CREATE
#undef SEARCH_ANALYTICS_CREATE_TEXT
}

void Names::destroy() noexcept {
#define SEARCH_ANALYTICS_DESTROY(name) Py_CLEAR(name);
#define SEARCH_ANALYTICS_DESTROY_TEXT(name, text) Py_CLEAR(name);
    SEARCH_ANALYTICS_NAMES(SEARCH_ANALYTICS_DESTROY, SEARCH_ANALYTICS_DESTROY_TEXT)
#undef SEARCH_ANALYTICS_DESTROY
#undef SEARCH_ANALYTICS_DESTROY_TEXT
}

}  // namespace search_analytics::host
