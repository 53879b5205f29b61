#ifndef QKMEM_FORMATS_OPENMETRICS_H_
#define QKMEM_FORMATS_OPENMETRICS_H_

#include <cstdint>
#include <string_view>

#include "support/page_buffer.h"
#include "support/page_writer.h"

namespace qk::mem {

/** What Prometheus and others collect. Their names, units and help texts never change. */
enum class MetricFamily : unsigned char {
  kTagBytes,
  kHandleBytes,
  kHandleBlocks,
  kAllocations,
  kPeakBytes,
  kUntrackedBytes
};

/** What a sample is about, besides the process. Only what its family has as labels is written. */
struct MetricLabels {
  int handle = 0;
  std::string_view tag{};
};

/**
 * Writes a process's metrics to a PageBuffer, as a text that OpenMetrics, the older text format of
 * Prometheus, and `promtool check metrics` accept. Without the heap, the same in every locale.
 */
class OpenMetricsWriter {
 public:
  /**
   * The program's name must stay valid. Like the tags, it can be any bytes but zero bytes. The
   * copies of the library in a process have numbers. Those after the first are a label, since no
   * two series may have the same labels.
   */
  OpenMetricsWriter(std::string_view program, int process_id, std::uint32_t copy,
                    qk::PageBuffer& out) noexcept
      : program_(program), process_id_(process_id), copy_(copy), out_(out) {}

  /** Begins a family, once. The samples that follow belong to it. */
  void begin(MetricFamily family) noexcept;

  /** No two samples of a family may have the same labels. */
  void sample(const MetricLabels& labels, std::int64_t value) noexcept;

  /** Writes the last line. Returns whether all is there; otherwise there was no memory. */
  [[nodiscard]] bool finish() noexcept;

 private:
  void put_metadata(std::string_view keyword, std::string_view value) noexcept;
  void put_text_label(std::string_view name, std::string_view text) noexcept;
  void put_number_label(std::string_view name, std::int64_t number) noexcept;

  std::string_view program_;
  int process_id_;
  std::uint32_t copy_;
  qk::PageWriter out_;
  MetricFamily family_{};
};

}  // namespace qk::mem

#endif  // QKMEM_FORMATS_OPENMETRICS_H_
