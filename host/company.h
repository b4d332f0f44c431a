// The host's side of a company: opening and closing one the way an accounting program
// does (company path, current directory, shared marker, settings cache), and the sample
// company of the demo, written through the record manager as maintenance screens would.
#ifndef BASICS_HOST_COMPANY_H_
#define BASICS_HOST_COMPANY_H_

#include <string>

namespace host {

// Opens the company in dir: makes it the current directory, sets the company path and
// takes the shared marker. Answers false (with a line on stderr) when dir holds no company.
bool OpenCompany(const std::string& dir);
// Closes every handle the library keeps, frees the settings cache and releases the
// marker; reports handles left open on stderr and answers how many there were.
int CloseCompany();

// Creates dir when needed and makes an empty company in it: every data file empty and the
// general file filled with its defaults. Answers false with a line on stderr on failure.
bool CreateCompany(const std::string& dir);

// Writes the sample data of the demo into the open company: a fiscal calendar of twelve
// monthly periods around today, a chart of accounts, customers, vendors and employees.
bool WriteSampleCompany();

}  // namespace host

#endif  // BASICS_HOST_COMPANY_H_
