// The contents of trace_page.css, for the page.
#ifndef ARVL_HOST_TRACE_TRACE_PAGE_STYLE_H_
#define ARVL_HOST_TRACE_TRACE_PAGE_STYLE_H_

namespace arvl_host {

extern const char kTracePageStyle[];

}  // namespace arvl_host

#endif  // ARVL_HOST_TRACE_TRACE_PAGE_STYLE_H_
