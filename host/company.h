// The host's side of a company: opening and closing one the way an accounting program
// does (company path, current directory, shared marker, settings cache), and the sample
// company of the demo, written through the record manager as maintenance screens would.
// Whether a directory holds a company is the record manager's answer, never a file test.
#ifndef BASICS_HOST_COMPANY_H_
#define BASICS_HOST_COMPANY_H_

#include <string>

#include "Basics.h"
#include "outcome.h"

namespace host {

// Opens the company in dir (an absolute path): opens its general file read-only and reads
// every settings record through it, then makes dir the current directory, sets the company
// path and takes the shared marker. On failure records in out what the record manager
// answered and leaves nothing open.
bool OpenCompany(const std::string& dir, Outcome& out);
// Closes every handle the library and the host keep, frees the settings cache and
// releases the marker. A handle still open afterwards is recorded in out as a failure.
void CloseCompany(Outcome& out);
// The host's read-only handle on the open company's general file (null when none is
// open). It belongs to the host; callers must not close it.
BtrvFile* GeneralFile();

// The company's data record and option switches (MyCompany, Options) belong to the host,
// which keeps them in the general file's kind-6 record (the library reads nothing of it):
// the company record at offset 2, the options at offset 514. OpenCompany loads them into
// the globals and CloseCompany clears them. SaveHostSettings writes the globals back into
// the open company; on failure records the reason in out.
bool SaveHostSettings(Outcome& out);

// Creates dir when needed and makes an empty company in it: every data file empty and the
// general file filled with its defaults. Refuses a directory whose general file opens. On
// failure records the reason in out; the company is closed again either way.
bool CreateCompany(const std::string& dir, Outcome& out);

// Writes the sample data of the demo into the open company: a fiscal calendar of twelve
// monthly periods around today, a chart of accounts, customers, vendors and employees.
// On failure records the reason in out; what was written stays.
bool WriteSampleCompany(Outcome& out);

}  // namespace host

#endif  // BASICS_HOST_COMPANY_H_
