// Listings written row by row as a report walks the books, for reports too long to hold
// in memory: the same table, CSV and JSON forms as listing.h, except that a table's
// columns have widths fixed in advance (a longer text is cut, a longer number overflows).
// Writes through an Outcome (which a long report spools to a temporary file).
#ifndef BASICS_HOST_STREAM_LISTING_H_
#define BASICS_HOST_STREAM_LISTING_H_

#include <string>
#include <vector>

#include "listing.h"
#include "outcome.h"

namespace host {

// A column of a streamed listing and its width in a table.
struct StreamColumn {
  std::string name;
  bool number = false;
  size_t width = 0;
};

class ListingStream {
 public:
  ListingStream(Format format, Outcome& out) : format_(format), out_(out) {}
  // Ends the last listing and the document.
  ~ListingStream();
  ListingStream(const ListingStream&) = delete;
  ListingStream& operator=(const ListingStream&) = delete;

  // Ends the listing before (if any) and starts the next one with its title and columns.
  void Begin(const std::string& title, std::vector<StreamColumn> columns);
  // Adds a row to the listing begun last; cells beyond the columns are dropped, missing
  // ones are empty.
  void Row(std::vector<std::string> cells);
  // A blank line before the next row, between groups of rows, in the table form only.
  void Break();
  // A line under the listing begun last, in the table form only.
  void Footer(const std::string& text);

 private:
  void EndListing();

  Format format_;
  Outcome& out_;
  std::vector<StreamColumn> columns_;
  int listings_ = 0;
  bool open_ = false;
  bool break_pending_ = false;
  size_t rows_ = 0;
  std::string footer_;
};

}  // namespace host

#endif  // BASICS_HOST_STREAM_LISTING_H_
