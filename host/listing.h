// Listings of the host program: a titled table of text cells, rendered as an aligned text
// table, as CSV or as JSON, so that every view can be read by a person or by a program.
#ifndef BASICS_HOST_LISTING_H_
#define BASICS_HOST_LISTING_H_

#include <string>
#include <vector>

#include "outcome.h"

namespace host {

enum class Format { kTable, kCsv, kJson };

// Parses "table", "csv" or "json"; answers false for anything else.
bool ParseFormat(const std::string& text, Format* format);

struct Column {
  std::string name;
  bool number = false;  // right-aligned in a table, a bare number in JSON
};

class Listing {
 public:
  Listing(std::string title, std::vector<Column> columns)
      : title_(std::move(title)), columns_(std::move(columns)) {}

  // Adds a row; cells beyond the columns are dropped, missing ones are empty.
  void Add(std::vector<std::string> cells);
  // A line printed under the table in the text form only (a count, a remark).
  void SetFooter(std::string footer) { footer_ = std::move(footer); }

  const std::string& title() const { return title_; }
  const std::vector<Column>& columns() const { return columns_; }
  const std::vector<std::vector<std::string>>& rows() const { return rows_; }
  const std::string& footer() const { return footer_; }

 private:
  std::string title_;
  std::vector<Column> columns_;
  std::vector<std::vector<std::string>> rows_;
  std::string footer_;
};

// The pieces of the forms: a CSV line of cells (RFC 4180 quoting), a JSON string, and a
// cell as a JSON value (a number cell bare when it reads back whole as a number).
std::string CsvLine(const std::vector<std::string>& cells);
std::string JsonString(const std::string& text);
std::string JsonValue(const std::string& cell, bool number);

// Appends listings to out in format. Text: each listing's title, its header and rows in
// aligned columns, its footer, a blank line between listings. CSV: per listing a header
// row and its rows (RFC 4180 quoting), a blank line between listings. JSON: one object
// whose members are the listings' titles, each an array of row objects.
void Render(const std::vector<Listing>& listings, Format format, Outcome& out);

}  // namespace host

#endif  // BASICS_HOST_LISTING_H_
