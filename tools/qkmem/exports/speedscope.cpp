#include <map>
#include <new>
#include <tuple>

#include "exports/exports.h"
#include "exports/samples.h"
#include "formats/json.h"
#include "support/page_buffer.h"
#include "views/groups.h"

namespace qk::command {
namespace {

/** The frames of all samples, each once, by number. */
class FrameTable {
 public:
  std::uint64_t number_of(const Frame& frame) {
    const auto [found, is_new] =
        numbers_.try_emplace({frame.function, frame.file, frame.line}, frames_.size());
    if (is_new) frames_.push_back(frame);
    return found->second;
  }
  [[nodiscard]] const std::vector<Frame>& frames() const { return frames_; }

 private:
  std::map<std::tuple<std::string, std::string, int>, std::uint64_t> numbers_;
  std::vector<Frame> frames_;
};

void put_profile(mem::JsonWriter& json, std::string_view name, const std::vector<Sample>& samples,
                 FrameTable& frames, Amount (*amount)(const Figures&)) {
  std::uint64_t whole = 0;
  for (const Sample& sample : samples) whole += amount(*sample.figures).bytes;
  json.start_line().begin_object().key("type").text("sampled").key("name").text(name);
  json.key("unit").text("bytes").key("startValue").number(0).key("endValue").number(whole);
  json.key("samples").begin_array();
  for (const Sample& sample : samples) {
    if (amount(*sample.figures).bytes == 0) continue;
    json.begin_array();
    for (auto frame = sample.frames.rbegin(); frame != sample.frames.rend(); ++frame) {
      json.number(frames.number_of(*frame));
    }
    json.end_array();
  }
  json.end_array().key("weights").begin_array();
  for (const Sample& sample : samples) {
    if (const std::uint64_t bytes = amount(*sample.figures).bytes; bytes != 0) json.number(bytes);
  }
  json.end_array().end_object();
}

void put_frames(mem::JsonWriter& json, const FrameTable& frames) {
  json.start_line().key("shared").begin_object().key("frames").begin_array();
  for (const Frame& frame : frames.frames()) {
    json.start_line().begin_object().key("name").text(frame.function);
    if (!frame.file.empty()) json.key("file").text(frame.file);
    if (frame.line > 0) json.key("line").number(static_cast<std::uint64_t>(frame.line));
    json.end_object();
  }
  json.end_array().end_object();
}

}  // namespace

/** A profile each for the end, the peak, and all that was ever made. --at says which is shown first. */
Export write_speedscope(const Query& query) {
  Reading reading = read(query);
  const std::vector<Sample> samples = samples_of(reading);
  FrameTable frames;
  qk::PageBuffer text;
  mem::JsonWriter json(text);
  json.begin_object();
  json.key("$schema").text("https://www.speedscope.app/file-format-schema.json");
  json.start_line().key("name").text(command_line_of(query, reading.ledger));
  json.key("exporter").text("qkmem");
  json.key("activeProfileIndex").number(static_cast<std::uint64_t>(query.at));
  json.start_line().key("profiles").begin_array();
  put_profile(json, "live at the end", samples, frames,
              [](const Figures& figures) { return figures.live; });
  put_profile(json, "live at the peak", samples, frames,
              [](const Figures& figures) { return figures.at_peak; });
  put_profile(json, "ever made", samples, frames,
              [](const Figures& figures) { return figures.made; });
  json.end_array();
  put_frames(json, frames);
  json.end_object();
  if (!json.is_complete()) throw std::bad_alloc();
  return {std::string(text.text()) + "\n", reading.remarks};
}

}  // namespace qk::command
