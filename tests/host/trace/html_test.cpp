#include "trace/html.h"

#include <gtest/gtest.h>

namespace arvl_host {
namespace {

TEST(EscapeHtml, EscapesMarkup) {
  EXPECT_EQ(escapeHtml("<a href=\"x\" b='y'>&amp;"),
            "&lt;a href=&quot;x&quot; b=&#39;y&#39;&gt;&amp;amp;");
}

}  // namespace
}  // namespace arvl_host
