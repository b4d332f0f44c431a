#include "post.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>

#include <nlohmann/json.hpp>

#include "Basics.h"
#include "posting.h"
#include "progress.h"
#include "text.h"

namespace host {
namespace {

using Json = nlohmann::json;

struct JournalName {
  const char* name;
  JournalTypes journal;
};
const JournalName kJournals[] = {
    {"general", GENJ},   {"receipt", CRJ},        {"disbursement", CDJ},    {"sale", SJ},
    {"purchase", PJ},    {"payroll", PRJ},        {"cost-of-goods", COGSJ}, {"adjustment", INAJ},
    {"assembly", ASBYJ}, {"purchase-order", POJ}, {"sales-order", SOJ}};

bool ParseDate(const std::string& text, DatesType* date) {
  int year = 0, month = 0, day = 0;
  char extra = 0;
  if (std::sscanf(text.c_str(), "%4d-%2d-%2d%c", &year, &month, &day, &extra) != 3) return false;
  if (text.size() != 10) return false;
  MakeDate(month, day, year, *date);
  return IsLegalDate(*date);
}

// Reads the members of one JSON object into a spec, refusing the first that is unknown or
// of the wrong type. Field names are reported with prefix (e.g. "lines[2].").
class Reader {
 public:
  Reader(Refusal* refusal, std::string prefix) : refusal_(refusal), prefix_(std::move(prefix)) {}
  bool ok() const { return ok_; }

  bool Refuse(const std::string& field, const std::string& reason) {
    if (ok_) *refusal_ = Refusal{prefix_ + field, reason};
    ok_ = false;
    return false;
  }
  void Text(const Json& v, const std::string& field, std::string* out) {
    if (v.is_string()) {
      *out = v.get_ref<const std::string&>();
    } else {
      Refuse(field, "wants a string");
    }
  }
  void Number(const Json& v, const std::string& field, double* out, bool* given = nullptr) {
    if (!v.is_number()) {
      Refuse(field, "wants a number");
      return;
    }
    *out = v.get<double>();
    if (given != nullptr) *given = true;
  }
  void Date(const Json& v, const std::string& field, DatesType* out, bool* given = nullptr) {
    std::string text;
    Text(v, field, &text);
    if (!ok_) return;
    if (!ParseDate(text, out)) {
      Refuse(field, "wants a date as YYYY-MM-DD");
      return;
    }
    if (given != nullptr) *given = true;
  }

 private:
  Refusal* refusal_;
  std::string prefix_;
  bool ok_ = true;
};

bool ReadLine(const Json& object, const std::string& prefix, LineSpec* line, Refusal* refusal) {
  Reader r(refusal, prefix);
  if (!object.is_object()) return r.Refuse("", "wants an object");
  for (const auto& [name, v] : object.items()) {
    if (!r.ok()) break;
    if (name == "account") {
      r.Text(v, name, &line->account);
    } else if (name == "amount") {
      r.Number(v, name, &line->amount, &line->has_amount);
    } else if (name == "description") {
      r.Text(v, name, &line->description);
    } else if (name == "item") {
      r.Text(v, name, &line->item);
    } else if (name == "quantity") {
      r.Number(v, name, &line->quantity);
    } else if (name == "unit_price") {
      r.Number(v, name, &line->unit_price);
    } else if (name == "cost") {
      r.Number(v, name, &line->cost, &line->has_cost);
    } else if (name == "job") {
      r.Text(v, name, &line->job);
    } else if (name == "phase") {
      r.Text(v, name, &line->phase);
    } else if (name == "cost_code") {
      r.Text(v, name, &line->cost_code);
    } else if (name == "invoice") {
      r.Text(v, name, &line->invoice);
    } else if (name == "code") {
      r.Text(v, name, &line->code);
    } else {
      r.Refuse(name, "unknown field");
    }
  }
  return r.ok();
}

bool ReadTransaction(const Json& object, TrxSpec* t, Refusal* refusal) {
  Reader r(refusal, "");
  if (!object.is_object()) return r.Refuse("", "wants an object");
  if (!object.contains("journal")) return r.Refuse("journal", "required");
  if (!object.contains("date")) return r.Refuse("date", "required");
  for (const auto& [name, v] : object.items()) {
    if (!r.ok()) break;
    if (name == "journal") {
      std::string text;
      r.Text(v, name, &text);
      bool known = false;
      for (const JournalName& j : kJournals) {
        if (text == j.name) {
          t->journal = j.journal;
          known = true;
        }
      }
      if (r.ok() && !known) r.Refuse(name, "unknown journal '" + text + "'");
    } else if (name == "date") {
      r.Date(v, name, &t->date);
    } else if (name == "reference") {
      r.Text(v, name, &t->reference);
    } else if (name == "description") {
      r.Text(v, name, &t->description);
    } else if (name == "customer") {
      r.Text(v, name, &t->customer);
    } else if (name == "vendor") {
      r.Text(v, name, &t->vendor);
    } else if (name == "employee") {
      r.Text(v, name, &t->employee);
    } else if (name == "item") {
      r.Text(v, name, &t->item);
    } else if (name == "account") {
      r.Text(v, name, &t->account);
    } else if (name == "amount") {
      r.Number(v, name, &t->amount, &t->has_amount);
    } else if (name == "due") {
      r.Date(v, name, &t->due, &t->has_due);
    } else if (name == "quantity") {
      r.Number(v, name, &t->quantity);
    } else if (name == "second_sales_journal") {
      if (v.is_boolean()) {
        t->second_sales_journal = v.get<bool>();
      } else {
        r.Refuse(name, "wants true or false");
      }
    } else if (name == "lines") {
      if (!v.is_array()) {
        r.Refuse(name, "wants an array of lines");
        break;
      }
      for (size_t i = 0; i < v.size(); ++i) {
        LineSpec line;
        if (!ReadLine(v[i], "lines[" + std::to_string(i + 1) + "].", &line, refusal)) return false;
        t->lines.push_back(std::move(line));
      }
    } else {
      r.Refuse(name, "unknown field");
    }
  }
  return r.ok();
}

}  // namespace

void PostFile(const std::string& path, const std::string& file, std::vector<Listing>* listings,
              int* refused, Outcome& out) {
  *refused = 0;
  std::ifstream in(path, std::ios::binary);
  if (!in) {
    out.Fail(file + ": cannot be read: " + std::strerror(errno), kNoStatus);
    return;
  }
  std::stringstream text;
  text << in.rdbuf();
  Json document;
  try {
    document = Json::parse(text.str());
  } catch (const Json::parse_error& e) {
    // The library's message reads "[json.exception.parse_error.101] parse error at ...".
    std::string what = e.what();
    const size_t start = what.find("] ");
    out.Fail(file + ": not JSON: " + (start == std::string::npos ? what : what.substr(start + 2)),
             kNoStatus);
    return;
  }
  if (!document.is_array()) {
    out.Fail(file + ": wants a JSON array of transactions", kNoStatus);
    return;
  }
  Poster poster;
  if (!poster.Open(out)) return;
  Listing posted("Posted transactions",
                 {{"No.", true}, {"Key"}, {"Journal"}, {"Date"}, {"Reference"}, {"Amount", true}});
  Progress progress("posting", document.size());
  for (size_t i = 0; i < document.size(); ++i) {
    progress.Step(i);
    TrxSpec t;
    Refusal refusal;
    PostedTrx done;
    const bool ok =
        ReadTransaction(document[i], &t, &refusal) && poster.Post(t, &done, &refusal, out);
    if (out.failed()) return;
    const std::string number = std::to_string(i + 1);
    if (!ok) {
      ++*refused;
      out.Note(file + ": transaction " + number +
               (refusal.field.empty() ? "" : ", " + refusal.field) + ": " + refusal.reason +
               "; not posted");
      continue;
    }
    posted.Add({number, done.key,
                GetJrnlName(t.journal == SJ && t.second_sales_journal ? SJ2 : t.journal),
                MediumDate(t.date), t.reference, Money(done.amount)});
  }
  progress.Step(document.size());
  posted.SetFooter("(" + std::to_string(posted.rows().size()) + " posted, " +
                   std::to_string(*refused) + " refused)");
  listings->push_back(std::move(posted));
}

}  // namespace host
