#include <fmt/format.h>

#include <map>
#include <new>

#include "exports/exports.h"
#include "exports/samples.h"
#include "formats/json.h"
#include "support/page_buffer.h"
#include "views/names.h"

namespace qk::command {
namespace {

using Path = std::vector<std::uint64_t>;

/** The texts of frames, each once. The first one stands for all. */
class FrameTexts {
 public:
  std::uint64_t number_of(const Frame& frame) {
    const auto [found, is_new] = numbers_.try_emplace(name_of(frame), texts_.size());
    if (is_new) texts_.push_back(fmt::format("{:#x}: {}", texts_.size(), found->first));
    return found->second;
  }
  [[nodiscard]] const std::vector<std::string>& texts() const { return texts_; }

 private:
  std::map<std::string, std::uint64_t> numbers_;
  std::vector<std::string> texts_ = {"[root]"};
};

/** Of all blocks: those that are never released live to the end. */
std::uint64_t lives_to(std::uint64_t end, const Figures& figures) {
  return figures.lives + figures.left().blocks * end - figures.begins;
}

void put_point(mem::JsonWriter& json, const Path& path, const Figures& figures, std::uint64_t end) {
  json.start_line().begin_object();
  const auto put = [&json](std::string_view key, std::uint64_t number) {
    json.key(key).number(number);
  };
  put("tb", figures.made.bytes);
  put("tbk", figures.made.blocks);
  put("tl", lives_to(end, figures));
  put("mb", figures.highest.bytes);
  put("mbk", figures.highest.blocks);
  put("gb", figures.at_peak.bytes);
  put("gbk", figures.at_peak.blocks);
  put("eb", figures.live.bytes);
  put("ebk", figures.live.blocks);
  json.key("fs").begin_array();
  for (const std::uint64_t frame : path) json.number(frame);
  json.end_array().end_object();
}

}  // namespace

/** Paths begin with tag and handle, since the viewer's tree does. It refuses equal ones. */
Export write_dhat(const Query& query) {
  Reading reading = read(query, Needs::kEvents);
  const Ledger& ledger = reading.ledger;
  const bool has_time = ledger.clock() == Clock::kNanoseconds;
  FrameTexts texts;
  std::map<Path, Figures> points;
  for (const Sample& sample : samples_of(reading)) {
    Path path;
    for (auto frame = sample.frames.rbegin(); frame != sample.frames.rend(); ++frame) {
      path.push_back(texts.number_of(*frame));
    }
    points[path].add(*sample.figures);
  }
  qk::PageBuffer text;
  mem::JsonWriter json(text);
  json.begin_object().key("dhatFileVersion").number(2).key("mode").text("heap");
  json.key("verb").text("Allocated").key("bklt").boolean(true).key("bkacc").boolean(false);
  json.start_line().key("tu").text(has_time ? "ns" : "events");
  json.key("Mtu").text(has_time ? "ms" : "million events").key("tuth").number(kSoon);
  json.start_line().key("cmd").text(command_line_of(query, ledger));
  json.key("pid").number(ledger.program().process);
  const std::uint64_t end = ledger.on_clock(ledger.last());
  json.key("te").number(end);
  json.key("tg").number(ledger.on_clock(ledger.peak_moment()));
  json.start_line().key("pps").begin_array();
  for (const auto& [path, figures] : points) put_point(json, path, figures, end);
  json.end_array().start_line().key("ftbl").begin_array();
  for (const std::string& frame : texts.texts()) json.start_line().text(frame);
  json.end_array().end_object();
  if (!json.is_complete()) throw std::bad_alloc();
  return {std::string(text.text()) + "\n", reading.remarks};
}

}  // namespace qk::command
