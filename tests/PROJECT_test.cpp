// Job-costing masters on a real company: project, phase and cost-code lookups and their
// transaction questions, list rows, the use tests over journal rows and estimates (and
// their different answers when the row file is gone), estimate sums, and estimate
// deletion that touches only its project and leaves all or none under failing writes.
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "Basics.h"
#include "company_test.h"
#include "record_manager_internal.h"
#include "rm_fault_backend.h"

namespace {

using Ints = std::vector<int>;
using Strs = std::vector<std::string>;

template <size_t N = 21>
FixedString<N> Fixed(const char* text) {
  FixedString<N> f{};
  f = text;
  return f;
}

DatesType Date(int month, int day) {  // of 2026
  DatesType d{};
  MakeDate(month, day, 2026, d);
  return d;
}

bool SameGuid(const GUID& a, const GUID& b) { return std::memcmp(&a, &b, sizeof a) == 0; }

template <typename Record, typename Open>
void Insert(Open open, Record* record) {
  BtrvFile* file = nullptr;
  ASSERT_NE(open(&file, kOpenModeNormal), 0);
  EXPECT_NE(InsertRecord(file, sizeof *record, record), 0);
  RealCloseFile(&file, __FILE__, __LINE__);
}

// Inserts the estimates into the open estimate file.
void AddEstimates(BtrvFile* file, const std::vector<JobEstRecord>& estimates) {
  for (JobEstRecord e : estimates) EXPECT_NE(InsertRecord(file, sizeof e, &e), 0);
}

// The project of every estimate in the file, in key order.
Ints EstimateProjects(BtrvFile* file) {
  Ints out;
  JobEstRecord e{};
  for (uint8_t ok = GetFileLowest(file, 0, sizeof e, &e, 0); ok;
       ok = GetFileNext(file, 0, sizeof e, &e, 0))
    out.push_back(e.Project);
  return out;
}

class JobsTest : public CompanyTest {
 protected:
  void SetUp() override {
    CompanyTest::SetUp();
    AddProject("JOB-A", "Aldred kitchen remodel", false, true);         // 1
    AddProject("JOB-B", "Bayview garden shed", true, false);            // 2, inactive
    AddProject("JOB-C", "Cedar fence", false, false);                   // 3
    AddProject("JOB-D", "Dockside repairs", false, false);              // 4
    AddPhase("P1", "Framing", false);                                   // phase 1
    AddPhase("P2", "Drywall", true);                                    // phase 2, inactive
    AddPhase("P3", "Painting", false);                                  // phase 3
    AddPhase("P4", "Cleanup", false);                                   // phase 4
    AddCost("C1", "Labor", "Direct labor costs of the trades", false);  // cost 1
    AddCost("C2", "Materials", "Materials", true);                      // cost 2, inactive
    AddCost("C3", "Equipment", "Equipment", false);                     // cost 3
  }
  void CloseLibraryFiles() override {
    CloseInternalProjFile();
    CloseInternalPhaseFile();
    CloseInternalCostFile();
    rm::SetBackendDecorator(nullptr);
  }

  void AddProject(const char* id, const char* name, bool inactive, bool uses_phases) {
    ProjectRecord p{.ID = Fixed(id), .Name = Fixed<31>(name), .StartDate = Date(1, 5)};
    p.EndDate = Date(12, 31);
    p.Inactive = inactive;
    p.UsesPhases = uses_phases;
    AssignGUID(p.Guid);
    Insert(OpenProjFile, &p);
    projects_.push_back(p);
  }
  void AddPhase(const char* id, const char* description, bool inactive) {
    PhaseRecord p{.ID = Fixed(id), .Description = Fixed<31>(description)};
    p.CostType = "Subcontract";
    p.UsesCostCodes = !inactive;
    p.Inactive = inactive;
    Insert(OpenPhaseFile, &p);
    phases_.push_back(p);
  }
  void AddCost(const char* id, const char* description, const char* type, bool inactive) {
    CostRecord c{.ID = Fixed(id), .Description = Fixed<31>(description)};
    c.CostType = type;
    c.Inactive = inactive;
    Insert(OpenCostFile, &c);
    costs_.push_back(c);
  }
  void AddRow(int32_t job, const char* phase, const char* cost) {
    JrnlRowType row{.PostOrder = static_cast<uint32_t>(++rows_), .Job = job};
    std::strcpy(row.Phase, phase);
    std::strcpy(row.CostCode, cost);
    AssignGUID(row.Guid);
    Insert(OpenJrnlRowFile, &row);
  }

  std::vector<ProjectRecord> projects_;
  std::vector<PhaseRecord> phases_;
  std::vector<CostRecord> costs_;
  int rows_ = 0;
};

TEST_F(JobsTest, ProjectsTranslateAndAskBeforeAnInactiveOneIsUsed) {
  // IDs not found come back empty; a GUID not found is left as it was.
  FixedString<21> found = Fixed("stale"), missing = Fixed("stale");
  GUID guid = projects_[3].Guid;
  EXPECT_EQ((Ints{GetProjNumFromID(Fixed("JOB-B")), GetProjNumFromID(Fixed("")),
                  GetProjNumFromGUID(projects_[2].Guid), GetProjIDFromNum(4, found),
                  GetProjIDFromNum(9, missing), GetProjGUIDFromNum(0, guid),
                  SameGuid(guid, projects_[3].Guid), GetProjGUIDFromNum(1, guid),
                  SameGuid(guid, projects_[0].Guid), ProjExist(Fixed("JOB-C")), ProjExist(3),
                  ProjExist(Fixed("JOB-Z")), ProjExist(5), ProjExist(0), UsePhases(Fixed("JOB-A")),
                  UsePhases(Fixed("JOB-C")), UsePhases(Fixed("JOB-Z"))}),
            (Ints{2, 0, 3, 1, 0, 0, 1, 1, 1, 1, 1, 0, 0, 0, 1, 0, 0}));
  EXPECT_EQ((Strs{found.s, missing.s}), (Strs{"JOB-D", ""}));
  ProjectRecord record, by_guid{.Guid = projects_[1].Guid};
  EXPECT_TRUE(GetProjectInfo(2, &record));
  EXPECT_STREQ(record.Name, "Bayview garden shed");
  EXPECT_FALSE(GetProjectInfo(Fixed("JOB-Z"), &record));
  EXPECT_EQ(record.RecordNumber, 0);
  EXPECT_TRUE(GetProj(&by_guid, kProjKeyGUID));
  EXPECT_STREQ(by_guid.ID, "JOB-B");

  // No message for an empty ID or an active project; the inactive one asks, No by default.
  EXPECT_EQ((Ints{ProjTrxAllowed(Fixed("JOB-A")), ProjTrxAllowed(Fixed("")),
                  ProjTrxAllowed(Fixed("JOB-Z"))}),
            (Ints{1, 0, 0}));
  messages_.Answer(IDNO);
  EXPECT_FALSE(ProjTrxAllowed(Fixed("JOB-B")));
  messages_.Answer(IDYES);
  EXPECT_TRUE(ProjTrxAllowed(Fixed("JOB-B")));
  EXPECT_EQ(messages_.Numbers(), (Ints{801, 804, 804}));
  EXPECT_EQ(messages_.shown()[0].text, "Project JOB-Z was not found.");
  EXPECT_NE(messages_.Last().text.find("JOB-B"), std::string::npos);
}

TEST_F(JobsTest, PhasesAndCostCodesTranslateAndAsk) {
  FixedString<21> phase = Fixed("stale"), cost = Fixed("stale"), phase_type, cost_type;
  FixedString<31> missing = Fixed<31>("stale"), description;
  EXPECT_EQ(
      (Ints{GetPhaseNumFromID(Fixed("P3")), GetCostNumFromID(Fixed("C2")),
            GetPhaseIDFromNum(0, phase), GetCostIDFromNum(3, cost), PhaseExist(Fixed("P4")),
            CostExist(Fixed("C1")), PhaseExist(Fixed("C1")), CostExist(Fixed("P1")),
            UseCosts(Fixed("P1")), bIsPhaseInactive(Fixed("P2")), bIsCostInactive(Fixed("C2")),
            bIsCostInactive(Fixed("C1")), bIsPhaseInactive(Fixed("P9")),
            GetPhaseDescription(Fixed("P9"), missing), GetCostDescription(Fixed("C3"), description),
            bGetCostTypeFromPhase(Fixed("P1"), phase_type),
            bGetCostTypeFromCost(Fixed("C1"), cost_type)}),
      (Ints{3, 2, 0, 1, 1, 1, 0, 0, 1, 1, 1, 0, 0, 0, 1, 1, 1}));
  // The cost code's 30 characters of type are cut to 20.
  EXPECT_EQ((Strs{phase.s, cost.s, missing.s, description.s, phase_type.s, cost_type.s}),
            (Strs{"", "C3", "", "Equipment", "Subcontract", "Direct labor costs o"}));

  // Inactive ones ask, No by default.
  EXPECT_EQ(
      (Ints{PhaseTrxAllowed(Fixed("P1")), CostTrxAllowed(Fixed("C1")), PhaseTrxAllowed(Fixed("P9")),
            PhaseTrxAllowed(Fixed("P2")), CostTrxAllowed(Fixed("C9"))}),
      (Ints{1, 1, 0, 0, 0}));
  messages_.Answer(IDYES);
  EXPECT_TRUE(CostTrxAllowed(Fixed("C2")));
  EXPECT_EQ(messages_.Numbers(), (Ints{15603, 15604, 15703, 15704}));
  EXPECT_EQ(messages_.shown()[0].text, "Phase P9 was not found.");

  EXPECT_TRUE(bPhasesExist() && bCostsExist());
  CloseLibraryFiles();
  ASSERT_EQ(ZORDeleteFile(PhaseName), kStatusOk);  // a missing file answers nothing found
  EXPECT_FALSE(bPhasesExist() || PhaseTrxAllowed(Fixed("P1")));
  EXPECT_EQ(messages_.shown().size(), 4u);
}

TEST_F(JobsTest, NamesAndListRowsShowTheInactiveLabels) {
  FixedString<31> names[3];
  EXPECT_EQ((Ints{SetProjName(Fixed("JOB-A"), names[0]), SetProjName(Fixed("JOB-B"), names[1]),
                  SetProjName(Fixed("JOB-Z"), names[2])}),
            (Ints{1, 1, 0}));
  EXPECT_EQ((Strs{names[0].s, names[1].s, names[2].s}),
            (Strs{"Aldred kitchen remodel", "<Inactive Project>", "<Project not found>"}));

  HWND dialog = CreateDialogModel();
  char text[2][64];
  SetDlgItemTextA(dialog, 10, "  JOB-C  ");
  EXPECT_TRUE(SetDlgProjName(dialog, 10, 11));
  GetDlgItemTextA(dialog, 11, text[0], sizeof text[0]);
  SetDlgItemTextA(dialog, 10, "   ");
  EXPECT_FALSE(SetDlgProjName(dialog, 10, 11));
  GetDlgItemTextA(dialog, 11, text[1], sizeof text[1]);
  EXPECT_EQ((Strs{text[0], text[1]}), (Strs{"Cedar fence", "<Project not found>"}));
  SetProjectTabs(GetDlgItem(dialog, 20));
  SetPhaseTabs(GetDlgItem(dialog, 21));
  SetCostTabs(GetDlgItem(dialog, 22));
  EXPECT_EQ(GetTabStops(GetDlgItem(dialog, 20)), (std::vector<int16_t>{104, 232, 292}));
  EXPECT_EQ(GetTabStops(GetDlgItem(dialog, 21)), (std::vector<int16_t>{104, 248}));
  EXPECT_EQ(GetTabStops(GetDlgItem(dialog, 22)), (std::vector<int16_t>{104, 248}));
  DestroyDialogModel(dialog);

  auto row = [](auto make, auto* record, unsigned short capacity = 128) {
    char out[128];
    make(record, capacity, out);
    return std::string(out);
  };
  EXPECT_EQ((Strs{row(MakeProjectString, &projects_[0]), row(MakeProjectString, &projects_[1]),
                  row(MakeProjectString, &projects_[0], 10), row(MakePhaseString, &phases_[0]),
                  row(MakePhaseString, &phases_[1]), row(MakeCostString, &costs_[1]),
                  row(MakeCostString, static_cast<CostRecord*>(nullptr))}),
            (Strs{"JOB-A\tAldred kitchen remodel\tJan 05, 2026\tDec 31, 2026",
                  "JOB-B\tBayview garden shed\t<Inactive Project>", "JOB-A\tAld", "P1\tFraming",
                  "P2\tDrywall\t<Inactive Phase>", "C2\tMaterials\t<Inactive Cost Code>", ""}));
}

TEST_F(JobsTest, UseTestsWalkJobRowsThenEstimates) {
  AddRow(1, "", "");      // JOB-A, no phase
  AddRow(2, "P1", "");    // JOB-B, a phase without a cost code
  AddRow(0, "P4", "C3");  // no job: never counts
  AddRow(3, "P3", "C1");  // JOB-C
  BtrvFile* est = nullptr;
  ASSERT_EQ(OpenJobEstFile(&est, kOpenModeNormal), 1);
  AddEstimates(est, {{4, 2, 0, {}, 10, 5}});  // JOB-D's estimate names phase 2 only
  RealCloseFile(&est, __FILE__, __LINE__);

  // JOB-B's phase row is not JOB-A's; estimates count for phase 2, not for JOB-D; phase 4 is
  // named only on a row of no job; records not yet saved are unused.
  ProjectRecord unsaved = projects_[0];
  unsaved.RecordNumber = 0;
  PhaseRecord unsaved_phase = phases_[0];
  unsaved_phase.RecordNumber = 0;
  EXPECT_EQ(
      (Ints{IsProjectUsed(&projects_[0], 0), IsProjectUsed(&projects_[0], 1),
            IsProjectUsed(&projects_[1], 1), IsProjectUsed(&projects_[3], 0),
            IsPhaseUsed(&phases_[0], 0), IsPhaseUsed(&phases_[0], 1), IsPhaseUsed(&phases_[1], 1),
            IsPhaseUsed(&phases_[2], 1), IsPhaseUsed(&phases_[3], 0), IsCostUsed(&costs_[0]),
            IsCostUsed(&costs_[1]), IsCostUsed(&costs_[2]), IsProjectUsed(&unsaved, 0),
            IsPhaseUsed(&unsaved_phase, 0)}),
      (Ints{1, 0, 1, 0, 1, 0, 1, 1, 0, 1, 0, 0, 0, 0}));
  EXPECT_EQ(OpenHandleCount(), 0u);  // the row and estimate files were opened for the moment

  // Without a row file a project reads as unused, a phase or cost code as used.
  ASSERT_EQ(ZORDeleteFile(JrnlRowFileName), kStatusOk);
  EXPECT_EQ(
      (Ints{IsProjectUsed(&projects_[0], 0), IsPhaseUsed(&phases_[3], 0), IsCostUsed(&costs_[2])}),
      (Ints{0, 1, 1}));
  EXPECT_TRUE(messages_.shown().empty());
}

TEST_F(JobsTest, EstimatesAreSummedAndDeletedByProjectOnly) {
  BtrvFile* est = nullptr;
  ASSERT_EQ(OpenJobEstFile(&est, kOpenModeNormal), 1);
  AddEstimates(est, {{1, 1, 1, {}, 100, 40},
                     {2, 0, 0, {}, 1000, 600},
                     {2, 1, 3, {}, 250.5, 100.25},
                     {2, 3, 1, {}, 0.25, 0.5},
                     {3, 0, 0, {}, 7, 3}});
  double sums[4] = {-1, -1, -1, -1};
  FindEstRevenueAndExpences(2, est, &sums[0], &sums[1]);
  FindEstRevenueAndExpences(4, est, &sums[2], &sums[3]);
  EXPECT_EQ((std::vector<double>(sums, sums + 4)), (std::vector<double>{1250.75, 700.75, 0, 0}));
  EXPECT_TRUE(DeleteJobEstRecords(est, 4));  // none: nothing touched
  EXPECT_TRUE(DeleteJobEstRecords(est, 2));
  EXPECT_EQ(EstimateProjects(est), (Ints{1, 3}));
  RealCloseFile(&est, __FILE__, __LINE__);
}

TEST_F(JobsTest, EstimateDeletionLeavesAllOrNone) {
  auto plan = std::make_shared<rm::FaultPlan>();
  rm::SetBackendDecorator([plan](std::unique_ptr<rm::Backend> inner) {
    return rm::WrapWithFaults(std::move(inner), plan);
  });
  BtrvFile* est = nullptr;
  ASSERT_EQ(OpenJobEstFile(&est, kOpenModeNormal), 1);
  AddEstimates(est, {{1, 0, 0, {}, 1, 1},
                     {2, 1, 0, {}, 1, 1},
                     {2, 2, 0, {}, 1, 1},
                     {2, 3, 0, {}, 1, 1},
                     {3, 0, 0, {}, 1, 1}});
  for (int n = 1;; ++n) {  // fail the nth write of the deletion, until none is left to fail
    SCOPED_TRACE(n);
    ASSERT_LT(n, 50);
    plan->Arm(n, kStatusDiskFull);
    EXPECT_TRUE(DeleteJobEstRecords(est, 2));
    const bool failed = plan->failures > 0;
    plan->Disarm();
    const Ints left = EstimateProjects(est);
    if (!failed) {
      EXPECT_GT(n, 3);  // each of the three deletes, at least, was made to fail
      EXPECT_EQ(left, (Ints{1, 3}));
      break;
    }
    EXPECT_EQ(left, (Ints{1, 2, 2, 2, 3}));
    if (left.size() != 5u) break;
  }
  RealCloseFile(&est, __FILE__, __LINE__);
}

}  // namespace
