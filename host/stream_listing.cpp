#include "stream_listing.h"

#include <algorithm>

namespace host {

ListingStream::~ListingStream() {
  EndListing();
  if (format_ == Format::kJson) out_.Printf("%s}\n", listings_ == 0 ? "{" : "\n");
}

void ListingStream::Begin(const std::string& title, std::vector<StreamColumn> columns) {
  EndListing();
  columns_ = std::move(columns);
  rows_ = 0;
  footer_.clear();
  std::vector<std::string> names;
  for (StreamColumn& c : columns_) {
    c.width = std::max(c.width, c.name.size());
    names.push_back(c.name);
  }
  switch (format_) {
    case Format::kJson:
      out_.Printf("%s\n  %s: [", listings_ == 0 ? "{" : ",", JsonString(title).c_str());
      break;
    case Format::kCsv:
      if (listings_ > 0) out_.Printf("\n");
      out_.Printf("%s\n", CsvLine(names).c_str());
      break;
    case Format::kTable:
      if (listings_ > 0) out_.Printf("\n");
      out_.Printf("%s\n", title.c_str());
      Row(names);
      rows_ = 0;
      break;
  }
  ++listings_;
  open_ = true;
}

void ListingStream::Row(std::vector<std::string> cells) {
  cells.resize(columns_.size());
  const size_t n = columns_.size();
  if (format_ == Format::kCsv) {
    out_.Printf("%s\n", CsvLine(cells).c_str());
  } else if (format_ == Format::kJson) {
    std::string object = "{";
    for (size_t c = 0; c < n; ++c) {
      if (c > 0) object += ", ";
      object += JsonString(columns_[c].name) + ": " + JsonValue(cells[c], columns_[c].number);
    }
    out_.Printf("%s\n    %s}", rows_ == 0 ? "" : ",", object.c_str());
  } else {
    if (break_pending_) out_.Printf("\n");
    break_pending_ = false;
    std::string text = " ";
    for (size_t c = 0; c < n; ++c) {
      std::string cell = cells[c];
      const size_t width = columns_[c].width;
      if (!columns_[c].number && cell.size() > width) cell.resize(width);
      const std::string pad(cell.size() < width ? width - cell.size() : 0, ' ');
      text += " ";
      text += columns_[c].number ? pad + cell : (c + 1 == n ? cell : cell + pad);
    }
    text.erase(text.find_last_not_of(' ') + 1);
    out_.Printf("%s\n", text.c_str());
  }
  ++rows_;
}

void ListingStream::Break() { break_pending_ = format_ == Format::kTable && open_; }

void ListingStream::Footer(const std::string& text) { footer_ = text; }

void ListingStream::EndListing() {
  if (!open_) return;
  open_ = false;
  if (format_ == Format::kJson) {
    out_.Printf("%s]", rows_ == 0 ? "" : "\n  ");
  } else if (format_ == Format::kTable && !footer_.empty()) {
    out_.Printf("  %s\n", footer_.c_str());
  }
  footer_.clear();
  columns_.clear();
  rows_ = 0;
  break_pending_ = false;
}

}  // namespace host
