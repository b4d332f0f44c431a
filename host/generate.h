// The `generate` command: a large, realistic book for trying the reports and measuring the
// library on, made through the same posting as the `post` command. Single-threaded.
#ifndef BASICS_HOST_GENERATE_H_
#define BASICS_HOST_GENERATE_H_

#include <cstdint>
#include <string>
#include <vector>

#include "listing.h"
#include "outcome.h"

namespace host {

struct GenerateOptions {
  int64_t transactions = 0;
  uint64_t seed = 1;
};

// Creates a company in dir (refused when dir holds one already) with the sample's chart
// and calendar, then customers, vendors, employees, items and jobs in proportion to the
// book's size, and posts options.transactions transactions in date order from the first
// open year's first day to today: sales and the receipts that pay them (some in part),
// purchases and the cheques that pay them, other expenses, payroll, general journal
// entries, inventory adjustments and orders. Transactions are posted in host batches of a
// few hundred. The same seed and today give the same book. Adds a listing of what was
// made; on failure records the reason in out (the batches committed before stay).
void GenerateBook(const std::string& dir, const GenerateOptions& options,
                  std::vector<Listing>* listings, Outcome& out);

}  // namespace host

#endif  // BASICS_HOST_GENERATE_H_
