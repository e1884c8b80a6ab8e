// output_file: a file that a run writes, in such a way that nothing is lost and no failure passes in silence.
// It owns the temporaries that stand beside the files of a run while they are made; no other room writes a file.
// kalvaris_inout makes its objects and keeps them until the end of the run.
#pragma once
#include <sstream>
#include <string>
#include <string_view>
#include <utility>

namespace output_file {

/// How the text comes to its place.
enum class way {
  whole,    ///< into a temporary that then takes the place: at any moment the old file stands there whole or this one
  append,   ///< the same, behind what the old file holds
  in_place  ///< the file grows while the run goes on
};

/// What a path that is a link means.
enum class links { followed, replaced };

class file {
 public:
  /// name: how messages call the file that stands at path. stem: how the names of temporaries begin.
  file(std::string path, std::string name, std::string stem, way how, links of_path = links::followed);
  /// Sends what an in_place file still holds, as far as it can be; a temporary that did not come to its place is
  /// removed.
  ~file();
  file(const file&) = delete;
  file& operator=(const file&) = delete;

  /// False when the file could not be written: it is write-protected or not a plain file, or its folder takes no file.
  /// A file in_place is empty from here on, any other stays as it is.
  [[nodiscard]] bool open();
  /// Takes the text of the file; it is kept until it is sent.
  [[nodiscard]] std::ostream& stream() { return text_; }
  /// Writes what stream() took: into the file, or the whole of it into the temporary. After a failure every call fails.
  [[nodiscard]] bool send();
  /// Sends and closes the file. Its temporary takes its place; owner, group and mode of the old file stay where the
  /// process may.
  [[nodiscard]] bool take_place();
  /// What open() asked, asked again.
  [[nodiscard]] bool may_take_place();
  /// Owner, group and mode become those of the file at this path instead.
  void attributes_of(std::string path) { like_ = std::move(path); }

  [[nodiscard]] const std::string& path() const { return place_; }
  [[nodiscard]] way how() const { return way_; }
  /// What stream() took since the last send.
  [[nodiscard]] std::string pending() const { return text_.str(); }
  /// "name: what the system says", blank as long as nothing failed.
  [[nodiscard]] const std::string& failure() const { return failure_; }

 private:
  bool fail(int error);
  bool open_in_place();
  bool send_whole(std::string_view text);
  bool make_temporary();
  int write_old_text() const;
  void keep_attributes() const;
  bool close_descriptor();
  void remove_temporary();

  std::string place_, like_, name_, stem_;
  way way_;
  links links_;
  std::ostringstream text_;
  int descriptor_ = -1;
  std::string temporary_;
  std::string failure_;
};

/// Why no file can be written at the path, as a number of the system; 0 when it can. Nothing is made or changed. A file
/// without any right to write counts as protected, also for a process that might overrule it.
[[nodiscard]] int obstacle_at(const std::string& path, links of_path = links::followed);

/// Removes the temporaries that killed runs with this stem left in the directory.
void remove_leftovers(const std::string& directory, const std::string& stem);

/// The file at the end of a chain of links, there or not; the path itself when it is no link.
[[nodiscard]] std::string end_of_links(const std::string& path);
/// The directory of a path, with the slash; blank for the working directory.
[[nodiscard]] std::string directory_of(const std::string& path);

}  // namespace output_file
