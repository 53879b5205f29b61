#include "formats/openmetrics.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstdint>
#include <string>

#include "support/page_buffer.h"

namespace {

using qk::mem::MetricFamily;
using qk::mem::OpenMetricsWriter;

std::string taken(qk::PageBuffer& buffer) {
  const std::string text(buffer.text());
  buffer.clear();
  return text;
}

TEST(OpenMetrics, HasALineForEachSampleOfEachFamily) {
  qk::PageBuffer buffer;
  OpenMetricsWriter metrics("app", 4711, 1, buffer);
  metrics.begin(MetricFamily::kTagBytes);
  metrics.sample({.tag = "DT"}, 1040);
  metrics.sample({.tag = "X"}, 0);
  metrics.begin(MetricFamily::kHandleBytes);
  metrics.sample({.handle = 1, .tag = "DT"}, 1000);
  metrics.sample({.handle = 12, .tag = "DT"}, 40);
  metrics.begin(MetricFamily::kHandleBlocks);
  metrics.sample({.handle = 1, .tag = "DT"}, 7);
  metrics.begin(MetricFamily::kAllocations);
  metrics.sample({}, 181020);
  metrics.begin(MetricFamily::kPeakBytes);
  metrics.sample({}, INT64_MAX);
  metrics.begin(MetricFamily::kUntrackedBytes);
  metrics.sample({}, -24);
  EXPECT_TRUE(metrics.finish());
  EXPECT_EQ(taken(buffer),
            "# TYPE qkmem_tag_bytes gauge\n"
            "# UNIT qkmem_tag_bytes bytes\n"
            "# HELP qkmem_tag_bytes Live memory on the handles of a tag.\n"
            "qkmem_tag_bytes{program=\"app\",pid=\"4711\",tag=\"DT\"} 1040\n"
            "qkmem_tag_bytes{program=\"app\",pid=\"4711\",tag=\"X\"} 0\n"
            "# TYPE qkmem_handle_bytes gauge\n"
            "# UNIT qkmem_handle_bytes bytes\n"
            "# HELP qkmem_handle_bytes Live memory on a handle.\n"
            "qkmem_handle_bytes{program=\"app\",pid=\"4711\",handle=\"1\",tag=\"DT\"} 1000\n"
            "qkmem_handle_bytes{program=\"app\",pid=\"4711\",handle=\"12\",tag=\"DT\"} 40\n"
            "# TYPE qkmem_handle_blocks gauge\n"
            "# HELP qkmem_handle_blocks Live allocations on a handle.\n"
            "qkmem_handle_blocks{program=\"app\",pid=\"4711\",handle=\"1\",tag=\"DT\"} 7\n"
            "# HELP qkmem_allocations_total Allocations since the profile began.\n"
            "qkmem_allocations_total{program=\"app\",pid=\"4711\"} 181020\n"
            "# TYPE qkmem_peak_bytes gauge\n"
            "# UNIT qkmem_peak_bytes bytes\n"
            "# HELP qkmem_peak_bytes Most live memory at one time since the profile began.\n"
            "qkmem_peak_bytes{program=\"app\",pid=\"4711\"} 9223372036854775807\n"
            "# TYPE qkmem_untracked_bytes gauge\n"
            "# UNIT qkmem_untracked_bytes bytes\n"
            "# HELP qkmem_untracked_bytes Live memory from before the profile began, or that it "
            "could not record.\n"
            "qkmem_untracked_bytes{program=\"app\",pid=\"4711\"} -24\n"
            "# EOF\n");
}

TEST(OpenMetrics, HasALabelForALaterCopyOfTheLibrary) {
  qk::PageBuffer buffer;
  OpenMetricsWriter metrics("app", 4711, 2, buffer);
  metrics.begin(MetricFamily::kHandleBlocks);
  metrics.sample({.handle = 1, .tag = "DT"}, 7);
  EXPECT_TRUE(metrics.finish());
  EXPECT_EQ(
      taken(buffer),
      "# TYPE qkmem_handle_blocks gauge\n"
      "# HELP qkmem_handle_blocks Live allocations on a handle.\n"
      "qkmem_handle_blocks{program=\"app\",pid=\"4711\",copy=\"2\",handle=\"1\",tag=\"DT\"} 7\n"
      "# EOF\n");
}

TEST(OpenMetrics, EscapesLabelsAndReplacesWhatIsNotUtf8) {
  qk::PageBuffer buffer;
  OpenMetricsWriter metrics("C:\\\"app\"\n\xFCn", -1, 1, buffer);
  metrics.begin(MetricFamily::kTagBytes);
  metrics.sample({.tag = "\xC3\xBC"}, 1);
  metrics.sample({.tag = ""}, 2);
  EXPECT_TRUE(metrics.finish());
  EXPECT_EQ(
      taken(buffer),
      "# TYPE qkmem_tag_bytes gauge\n"
      "# UNIT qkmem_tag_bytes bytes\n"
      "# HELP qkmem_tag_bytes Live memory on the handles of a tag.\n"
      "qkmem_tag_bytes{program=\"C:\\\\\\\"app\\\"\\n\xEF\xBF\xBDn\",pid=\"-1\",tag=\"\xC3\xBC\"} "
      "1\n"
      "qkmem_tag_bytes{program=\"C:\\\\\\\"app\\\"\\n\xEF\xBF\xBDn\",pid=\"-1\",tag=\"\"} 2\n"
      "# EOF\n");
}

}  // namespace
