#include "listing.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

namespace host {
namespace {

std::string CsvCell(const std::string& cell) {
  if (cell.find_first_of(",\"\n\r") == std::string::npos) return cell;
  std::string quoted = "\"";
  for (char c : cell) {
    if (c == '"') quoted += '"';
    quoted += c;
  }
  return quoted + "\"";
}

void RenderTable(const Listing& l, Outcome& out) {
  const size_t n = l.columns().size();
  std::vector<size_t> width(n, 0);
  for (size_t c = 0; c < n; ++c) width[c] = l.columns()[c].name.size();
  for (const auto& row : l.rows())
    for (size_t c = 0; c < n; ++c) width[c] = std::max(width[c], row[c].size());
  auto line = [&](const std::vector<std::string>& cells) {
    std::string text = " ";
    for (size_t c = 0; c < n; ++c) {
      const std::string& cell = cells[c];
      const std::string pad(width[c] - cell.size(), ' ');
      text += " ";
      text += l.columns()[c].number ? pad + cell : (c + 1 == n ? cell : cell + pad);
    }
    text.erase(text.find_last_not_of(' ') + 1);
    out.Printf("%s\n", text.c_str());
  };
  out.Printf("%s\n", l.title().c_str());
  std::vector<std::string> header;
  for (const Column& column : l.columns()) header.push_back(column.name);
  line(header);
  for (const auto& row : l.rows()) line(row);
  if (!l.footer().empty()) out.Printf("  %s\n", l.footer().c_str());
}

}  // namespace

std::string CsvLine(const std::vector<std::string>& cells) {
  std::string line;
  for (size_t c = 0; c < cells.size(); ++c) {
    if (c > 0) line += ',';
    line += CsvCell(cells[c]);
  }
  return line;
}

std::string JsonString(const std::string& text) {
  std::string out = "\"";
  for (unsigned char c : text) {
    switch (c) {
      case '"':
        out += "\\\"";
        break;
      case '\\':
        out += "\\\\";
        break;
      case '\n':
        out += "\\n";
        break;
      case '\t':
        out += "\\t";
        break;
      default:
        if (c < 0x20) {
          char escaped[8];
          std::snprintf(escaped, sizeof escaped, "\\u%04x", c);
          out += escaped;
        } else {
          out += static_cast<char>(c);  // UTF-8 and Latin-1 bytes pass through
        }
    }
  }
  return out + "\"";
}

// A number cell is written bare only when it reads back whole as a number.
std::string JsonValue(const std::string& cell, bool number) {
  if (number && !cell.empty()) {
    char* end = nullptr;
    std::strtod(cell.c_str(), &end);
    if (end != nullptr && *end == '\0') return cell;
  }
  return JsonString(cell);
}

bool ParseFormat(const std::string& text, Format* format) {
  if (text == "table")
    *format = Format::kTable;
  else if (text == "csv")
    *format = Format::kCsv;
  else if (text == "json")
    *format = Format::kJson;
  else
    return false;
  return true;
}

void Listing::Add(std::vector<std::string> cells) {
  cells.resize(columns_.size());
  rows_.push_back(std::move(cells));
}

void Render(const std::vector<Listing>& listings, Format format, Outcome& out) {
  if (format == Format::kJson) {
    out.Printf("{");
    for (size_t i = 0; i < listings.size(); ++i) {
      const Listing& l = listings[i];
      out.Printf("%s\n  %s: [", i == 0 ? "" : ",", JsonString(l.title()).c_str());
      for (size_t r = 0; r < l.rows().size(); ++r) {
        std::string object = "{";
        for (size_t c = 0; c < l.columns().size(); ++c) {
          if (c > 0) object += ", ";
          object += JsonString(l.columns()[c].name) + ": " +
                    JsonValue(l.rows()[r][c], l.columns()[c].number);
        }
        out.Printf("%s\n    %s}", r == 0 ? "" : ",", object.c_str());
      }
      out.Printf("%s]", l.rows().empty() ? "" : "\n  ");
    }
    out.Printf("\n}\n");
    return;
  }
  for (size_t i = 0; i < listings.size(); ++i) {
    if (i > 0) out.Printf("\n");
    const Listing& l = listings[i];
    if (format == Format::kTable) {
      RenderTable(l, out);
      continue;
    }
    std::vector<std::string> header;
    for (const Column& column : l.columns()) header.push_back(column.name);
    out.Printf("%s\n", CsvLine(header).c_str());
    for (const auto& row : l.rows()) out.Printf("%s\n", CsvLine(row).c_str());
  }
}

}  // namespace host
