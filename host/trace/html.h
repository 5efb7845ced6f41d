// Escapes text for a page.
#ifndef ARVL_HOST_TRACE_HTML_H_
#define ARVL_HOST_TRACE_HTML_H_

#include <string>
#include <string_view>

namespace arvl_host {

// Returns `text` with the special characters of HTML escaped.
std::string escapeHtml(std::string_view text);

}  // namespace arvl_host

#endif  // ARVL_HOST_TRACE_HTML_H_
