// The `post` command: transactions read from a JSON file (docs/posting-format.md) and
// posted into the open company one by one, each whole or not at all.
#ifndef BASICS_HOST_POST_H_
#define BASICS_HOST_POST_H_

#include <string>
#include <vector>

#include "listing.h"
#include "outcome.h"

namespace host {

// Posts the transactions of the JSON file at path (named `name` in messages) into the open
// company and adds the
// listing of those posted. A transaction that is refused is written to nothing; its index,
// field and reason are kept in out as a message, and *refused counts it. A file that cannot
// be read or is not a JSON array of objects fails out before anything is posted; a failure
// of the company's files fails out too (transactions posted before it stay posted).
void PostFile(const std::string& path, const std::string& name, std::vector<Listing>* listings,
              int* refused, Outcome& out);

}  // namespace host

#endif  // BASICS_HOST_POST_H_
