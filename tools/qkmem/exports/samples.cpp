#include "exports/samples.h"

#include <fmt/format.h>

#include <algorithm>

#include "views/calls.h"
#include "views/names.h"

namespace qk::command {
namespace {

/** Most formats have lines. */
std::string on_one_line(std::string text) {
  std::replace_if(
      text.begin(), text.end(), [](char c) { return static_cast<unsigned char>(c) < ' '; }, ' ');
  return text;
}

/** Viewers shorten names of functions, which have a type in front of a space. */
std::string one_word(std::string_view text) {
  std::string word(text);
  std::replace(word.begin(), word.end(), ' ', '_');
  return word;
}

}  // namespace

std::vector<Frame> frames_of(const Ledger& ledger, const SiteKey& site) {
  std::vector<Frame> frames = calls_to(ledger, site);
  if (frames.empty() || base_of(frames.front().file) != base_of(site.file)) {
    const std::string place = fmt::format("{}:{}", base_of(site.file), site.line);
    frames.insert(frames.begin(), {site.file.empty() ? std::string("no site") : place,
                                   std::string(site.file), site.line});
  } else {
    frames.front().line = site.line;
  }
  if (!site.label.empty()) frames.push_back({"label:" + one_word(site.label), {}, 0});
  const Handle& handle = ledger.handles()[site.handle];
  frames.push_back({"handle:" + std::to_string(handle.number), {}, 0});
  if (!handle.tag.empty()) frames.push_back({"tag:" + handle.tag, {}, 0});
  for (Frame& frame : frames) {
    frame.function = on_one_line(frame.function);
    frame.file = on_one_line(frame.file);
  }
  return frames;
}

std::vector<Sample> samples_of(Reading& reading) {
  if (!reading.ledger.program().stacks.empty()) name_calls(reading);
  std::vector<Sample> samples;
  const Ledger& ledger = reading.ledger;
  for (SiteIndex index = 0; index < ledger.sites().count(); ++index) {
    if (ledger.figures_of(index).is_empty()) continue;
    const SiteKey& site = ledger.sites().at(index);
    samples.push_back({&ledger.handles()[site.handle], &site, &ledger.figures_of(index),
                       frames_of(ledger, site)});
  }
  return samples;
}

std::string command_line_of(const Query& query, const Ledger& ledger) {
  const std::string& command = ledger.program().command;
  return on_one_line(command.empty() ? shown_name(query.input) : command);
}

}  // namespace qk::command
