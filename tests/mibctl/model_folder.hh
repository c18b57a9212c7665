// Published documents in a folder of their own, and what is read from them.
#pragma once
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "model.hh"

namespace mibctl {

class ModelFolder : public testing::Test {
 protected:
  ModelFolder() {
    std::string pattern = std::filesystem::temp_directory_path() / "model.XXXXXX";
    folder_ = mkdtemp(pattern.data());
    folder_ += '/';
  }
  ~ModelFolder() override { std::filesystem::remove_all(folder_); }

  std::string path(const std::string& name) const { return folder_ + name; }

  void write(const std::string& name, const std::string& text) const {
    std::ofstream(path(name), std::ios::binary) << text;
  }

  // Documents with one model; `definitions` come in front of it. They begin on line 2, the model's
  // content on the line behind them and "<model>".
  void write_model(const std::string& name, const std::string& content,
                   const std::string& definitions = "",
                   const std::string& attributes = R"(name="Gw:1.0")") const {
    write(name, R"(<dm:document xmlns:dm="urn:example">)"
                "\n" +
                    definitions + "<model " + attributes + ">\n" + content +
                    "</model>\n</dm:document>\n");
  }

  Model read(const std::vector<std::string>& names, const std::string& select = "") const {
    std::vector<std::string> files;
    for (const std::string& name : names) files.push_back(path(name));
    return read_model(files, select);
  }

  // The model of a document "gw.xml" with this content.
  Model model(const std::string& content, const std::string& definitions = "") const {
    write_model("gw.xml", content, definitions);
    return read({"gw.xml"});
  }

  // The message that reading ends with, without the folder.
  std::string refusal_of_files(const std::vector<std::string>& names,
                               const std::string& select = "",
                               Status status = Status::refused) const {
    try {
      read(names, select);
    } catch (const Error& error) {
      EXPECT_EQ(error.status, status);
      std::string message = error.what();
      for (size_t at; (at = message.find(folder_)) != std::string::npos;)
        message.erase(at, folder_.size());
      return message;
    }
    return "no error";
  }

  std::string refusal(const std::string& content, const std::string& definitions = "") const {
    write_model("gw.xml", content, definitions);
    return refusal_of_files({"gw.xml"});
  }

 private:
  std::string folder_;
};

// "kind (detail)" of the notes, in order, each on a line; of one entry where a path is given.
inline std::string notes_of(const Model& model, const std::string& path = "") {
  std::string text;
  for (const Note& note : model.notes) {
    if (!path.empty() && note.path != path) continue;
    text += note.kind + (note.detail.empty() ? "" : " (" + note.detail + ")") + "\n";
  }
  return text;
}

// The paths of a tree's entries, in order.
inline std::string paths_of(const Entry& root) {
  std::string text;
  for_each(root, [&text](const Entry& entry) { text += entry.path() + "\n"; });
  return text;
}

}  // namespace mibctl
