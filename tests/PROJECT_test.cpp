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

template <size_t N>
FixedString<N> Fixed(const char* text) {
  FixedString<N> f{};
  f = text;
  return f;
}

DatesType Date(int year, int month, int day) {
  DatesType d{};
  MakeDate(month, day, year, d);
  return d;
}

template <typename Record, typename Open>
void Insert(Open open, Record* record) {
  BtrvFile* file = nullptr;
  ASSERT_NE(open(&file, kOpenModeNormal), 0);
  EXPECT_NE(InsertRecord(file, sizeof *record, record), 0);
  RealCloseFile(&file, __FILE__, __LINE__);
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
    ProjectRecord p{};
    p.ID = id;
    p.Name = name;
    p.StartDate = Date(2026, 1, 5);
    p.EndDate = Date(2026, 12, 31);
    p.Inactive = inactive;
    p.UsesPhases = uses_phases;
    AssignGUID(p.Guid);
    Insert(OpenProjFile, &p);
    projects_.push_back(p);
  }
  void AddPhase(const char* id, const char* description, bool inactive) {
    PhaseRecord p{};
    p.ID = id;
    p.Description = description;
    p.CostType = "Subcontract";
    p.UsesCostCodes = !inactive;
    p.Inactive = inactive;
    Insert(OpenPhaseFile, &p);
    phases_.push_back(p);
  }
  void AddCost(const char* id, const char* description, const char* type, bool inactive) {
    CostRecord c{};
    c.ID = id;
    c.Description = description;
    c.CostType = type;
    c.Inactive = inactive;
    Insert(OpenCostFile, &c);
    costs_.push_back(c);
  }
  void AddRow(int32_t job, const char* phase, const char* cost) {
    JrnlRowType row{};
    row.PostOrder = static_cast<uint32_t>(++rows_);
    row.Job = job;
    std::strcpy(row.Phase, phase);
    std::strcpy(row.CostCode, cost);
    AssignGUID(row.Guid);
    Insert(OpenJrnlRowFile, &row);
  }
  static void AddEstimates(BtrvFile* file, const std::vector<JobEstRecord>& estimates) {
    for (JobEstRecord e : estimates) EXPECT_NE(InsertRecord(file, sizeof e, &e), 0);
  }
  static std::vector<int32_t> EstimateProjects(BtrvFile* file) {
    std::vector<int32_t> out;
    JobEstRecord e{};
    for (uint8_t ok = GetFileLowest(file, 0, sizeof e, &e, 0); ok;
         ok = GetFileNext(file, 0, sizeof e, &e, 0)) {
      out.push_back(e.Project);
    }
    return out;
  }

  std::vector<ProjectRecord> projects_;
  std::vector<PhaseRecord> phases_;
  std::vector<CostRecord> costs_;
  int rows_ = 0;
};

TEST_F(JobsTest, ProjectsTranslateAndAskBeforeAnInactiveOneIsUsed) {
  EXPECT_EQ(GetProjNumFromID(Fixed<21>("JOB-B")), 2);
  EXPECT_EQ(GetProjNumFromID(Fixed<21>("")), 0);
  EXPECT_EQ(GetProjNumFromGUID(projects_[2].Guid), 3);
  FixedString<21> id = Fixed<21>("stale");
  EXPECT_TRUE(GetProjIDFromNum(4, id));
  EXPECT_STREQ(id, "JOB-D");
  EXPECT_FALSE(GetProjIDFromNum(9, id));
  EXPECT_STREQ(id, "");
  GUID guid = projects_[3].Guid;
  EXPECT_FALSE(GetProjGUIDFromNum(0, guid));  // left as it was
  EXPECT_EQ(std::memcmp(&guid, &projects_[3].Guid, sizeof guid), 0);
  EXPECT_TRUE(GetProjGUIDFromNum(1, guid));
  EXPECT_EQ(std::memcmp(&guid, &projects_[0].Guid, sizeof guid), 0);
  EXPECT_TRUE(ProjExist(Fixed<21>("JOB-C")) && ProjExist(3));
  EXPECT_FALSE(ProjExist(Fixed<21>("JOB-Z")) || ProjExist(5) || ProjExist(0));
  EXPECT_TRUE(UsePhases(Fixed<21>("JOB-A")));
  EXPECT_FALSE(UsePhases(Fixed<21>("JOB-C")) || UsePhases(Fixed<21>("JOB-Z")));
  ProjectRecord record;
  EXPECT_TRUE(GetProjectInfo(2, &record));
  EXPECT_STREQ(record.Name, "Bayview garden shed");
  EXPECT_FALSE(GetProjectInfo(Fixed<21>("JOB-Z"), &record));
  EXPECT_EQ(record.RecordNumber, 0);
  record = {};
  record.Guid = projects_[1].Guid;
  EXPECT_TRUE(GetProj(&record, kProjKeyGUID));
  EXPECT_STREQ(record.ID, "JOB-B");

  EXPECT_TRUE(ProjTrxAllowed(Fixed<21>("JOB-A")));
  EXPECT_FALSE(ProjTrxAllowed(Fixed<21>("")));
  EXPECT_TRUE(messages_.shown().empty());
  EXPECT_FALSE(ProjTrxAllowed(Fixed<21>("JOB-Z")));
  EXPECT_EQ(messages_.Last().text, "Project JOB-Z was not found.");
  messages_.Answer(IDNO);
  EXPECT_FALSE(ProjTrxAllowed(Fixed<21>("JOB-B")));
  messages_.Answer(IDYES);
  EXPECT_TRUE(ProjTrxAllowed(Fixed<21>("JOB-B")));
  EXPECT_EQ(messages_.Numbers(), (std::vector<int>{801, 804, 804}));
  EXPECT_NE(messages_.Last().text.find("JOB-B"), std::string::npos);
}

TEST_F(JobsTest, PhasesAndCostCodesTranslateAndAsk) {
  EXPECT_EQ(GetPhaseNumFromID(Fixed<21>("P3")), 3);
  EXPECT_EQ(GetCostNumFromID(Fixed<21>("C2")), 2);
  FixedString<21> id = Fixed<21>("stale");
  EXPECT_FALSE(GetPhaseIDFromNum(0, id));
  EXPECT_STREQ(id, "");
  EXPECT_TRUE(GetCostIDFromNum(3, id));
  EXPECT_STREQ(id, "C3");
  EXPECT_TRUE(PhaseExist(Fixed<21>("P4")) && CostExist(Fixed<21>("C1")));
  EXPECT_FALSE(PhaseExist(Fixed<21>("C1")) || CostExist(Fixed<21>("P1")));
  EXPECT_TRUE(UseCosts(Fixed<21>("P1")) && bIsPhaseInactive(Fixed<21>("P2")));
  EXPECT_TRUE(bIsCostInactive(Fixed<21>("C2")));
  EXPECT_FALSE(bIsCostInactive(Fixed<21>("C1")) || bIsPhaseInactive(Fixed<21>("P9")));
  FixedString<31> description = Fixed<31>("stale");
  EXPECT_FALSE(GetPhaseDescription(Fixed<21>("P9"), description));
  EXPECT_STREQ(description, "");
  EXPECT_TRUE(GetCostDescription(Fixed<21>("C3"), description));
  EXPECT_STREQ(description, "Equipment");
  FixedString<21> type;
  EXPECT_TRUE(bGetCostTypeFromPhase(Fixed<21>("P1"), type));
  EXPECT_STREQ(type, "Subcontract");
  EXPECT_TRUE(bGetCostTypeFromCost(Fixed<21>("C1"), type));
  EXPECT_STREQ(type, "Direct labor costs o");  // the cost code's 30 characters cut to 20

  EXPECT_TRUE(PhaseTrxAllowed(Fixed<21>("P1")) && CostTrxAllowed(Fixed<21>("C1")));
  EXPECT_FALSE(PhaseTrxAllowed(Fixed<21>("P9")));
  EXPECT_FALSE(PhaseTrxAllowed(Fixed<21>("P2")));  // the default answer is No
  EXPECT_FALSE(CostTrxAllowed(Fixed<21>("C9")));
  messages_.Answer(IDYES);
  EXPECT_TRUE(CostTrxAllowed(Fixed<21>("C2")));
  EXPECT_EQ(messages_.Numbers(), (std::vector<int>{15603, 15604, 15703, 15704}));
  EXPECT_EQ(messages_.shown()[0].text, "Phase P9 was not found.");

  EXPECT_TRUE(bPhasesExist() && bCostsExist());
  CloseLibraryFiles();
  ASSERT_EQ(ZORDeleteFile(PhaseName), kStatusOk);  // a missing file answers nothing found
  EXPECT_FALSE(bPhasesExist() || PhaseTrxAllowed(Fixed<21>("P1")));
  EXPECT_EQ(messages_.shown().size(), 4u);
}

TEST_F(JobsTest, NamesAndListRowsShowTheInactiveLabels) {
  FixedString<31> name;
  EXPECT_TRUE(SetProjName(Fixed<21>("JOB-A"), name));
  EXPECT_STREQ(name, "Aldred kitchen remodel");
  EXPECT_TRUE(SetProjName(Fixed<21>("JOB-B"), name));
  EXPECT_STREQ(name, "<Inactive Project>");
  EXPECT_FALSE(SetProjName(Fixed<21>("JOB-Z"), name));
  EXPECT_STREQ(name, "<Project not found>");

  HWND dialog = CreateDialogModel();
  SetDlgItemTextA(dialog, 10, "  JOB-C  ");
  EXPECT_TRUE(SetDlgProjName(dialog, 10, 11));
  char text[64];
  GetDlgItemTextA(dialog, 11, text, sizeof text);
  EXPECT_STREQ(text, "Cedar fence");
  SetDlgItemTextA(dialog, 10, "   ");
  EXPECT_FALSE(SetDlgProjName(dialog, 10, 11));
  GetDlgItemTextA(dialog, 11, text, sizeof text);
  EXPECT_STREQ(text, "<Project not found>");
  SetProjectTabs(GetDlgItem(dialog, 20));
  SetPhaseTabs(GetDlgItem(dialog, 21));
  SetCostTabs(GetDlgItem(dialog, 22));
  EXPECT_EQ(GetTabStops(GetDlgItem(dialog, 20)), (std::vector<int16_t>{104, 232, 292}));
  EXPECT_EQ(GetTabStops(GetDlgItem(dialog, 21)), (std::vector<int16_t>{104, 248}));
  EXPECT_EQ(GetTabStops(GetDlgItem(dialog, 22)), (std::vector<int16_t>{104, 248}));
  DestroyDialogModel(dialog);

  char row[128];
  MakeProjectString(&projects_[0], sizeof row, row);
  EXPECT_STREQ(row, "JOB-A\tAldred kitchen remodel\tJan 05, 2026\tDec 31, 2026");
  MakeProjectString(&projects_[1], sizeof row, row);
  EXPECT_STREQ(row, "JOB-B\tBayview garden shed\t<Inactive Project>");
  MakeProjectString(&projects_[0], 10, row);
  EXPECT_STREQ(row, "JOB-A\tAld");
  MakePhaseString(&phases_[0], sizeof row, row);
  EXPECT_STREQ(row, "P1\tFraming");
  MakePhaseString(&phases_[1], sizeof row, row);
  EXPECT_STREQ(row, "P2\tDrywall\t<Inactive Phase>");
  MakeCostString(&costs_[1], sizeof row, row);
  EXPECT_STREQ(row, "C2\tMaterials\t<Inactive Cost Code>");
  MakeCostString(nullptr, sizeof row, row);
  EXPECT_STREQ(row, "");
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

  EXPECT_TRUE(IsProjectUsed(&projects_[0], 0));
  EXPECT_FALSE(IsProjectUsed(&projects_[0], 1));  // JOB-B's phase row is not JOB-A's
  EXPECT_TRUE(IsProjectUsed(&projects_[1], 1));
  EXPECT_FALSE(IsProjectUsed(&projects_[3], 0));  // estimates do not count for projects
  EXPECT_TRUE(IsPhaseUsed(&phases_[0], 0));
  EXPECT_FALSE(IsPhaseUsed(&phases_[0], 1));
  EXPECT_TRUE(IsPhaseUsed(&phases_[1], 1));  // by JOB-D's estimate
  EXPECT_TRUE(IsPhaseUsed(&phases_[2], 1));
  EXPECT_FALSE(IsPhaseUsed(&phases_[3], 0));  // named only on a row of no job
  EXPECT_TRUE(IsCostUsed(&costs_[0]));
  EXPECT_FALSE(IsCostUsed(&costs_[1]) || IsCostUsed(&costs_[2]));
  ProjectRecord unsaved = projects_[0];
  unsaved.RecordNumber = 0;
  PhaseRecord unsaved_phase = phases_[0];
  unsaved_phase.RecordNumber = 0;
  EXPECT_FALSE(IsProjectUsed(&unsaved, 0) || IsPhaseUsed(&unsaved_phase, 0));
  EXPECT_EQ(OpenHandleCount(), 0u);  // the row and estimate files were opened for the moment

  // Without a row file a project reads as unused, a phase or cost code as used.
  ASSERT_EQ(ZORDeleteFile(JrnlRowFileName), kStatusOk);
  EXPECT_FALSE(IsProjectUsed(&projects_[0], 0));
  EXPECT_TRUE(IsPhaseUsed(&phases_[3], 0));
  EXPECT_TRUE(IsCostUsed(&costs_[2]));
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
  double revenue = -1, expenses = -1;
  FindEstRevenueAndExpences(2, est, &revenue, &expenses);
  EXPECT_DOUBLE_EQ(revenue, 1250.75);
  EXPECT_DOUBLE_EQ(expenses, 700.75);
  FindEstRevenueAndExpences(4, est, &revenue, &expenses);
  EXPECT_EQ(revenue, 0);
  EXPECT_EQ(expenses, 0);

  EXPECT_TRUE(DeleteJobEstRecords(est, 4));  // none: nothing touched
  EXPECT_TRUE(DeleteJobEstRecords(est, 2));
  EXPECT_EQ(EstimateProjects(est), (std::vector<int32_t>{1, 3}));
  RealCloseFile(&est, __FILE__, __LINE__);
}

TEST_F(JobsTest, EstimateDeletionLeavesAllOrNone) {
  auto plan = std::make_shared<rm::FaultPlan>();
  rm::SetBackendDecorator([plan](std::unique_ptr<rm::Backend> inner) {
    return rm::WrapWithFaults(std::move(inner), plan);
  });
  BtrvFile* est = nullptr;
  ASSERT_EQ(OpenJobEstFile(&est, kOpenModeNormal), 1);
  const std::vector<JobEstRecord> estimates = {{1, 0, 0, {}, 1, 1},
                                               {2, 1, 0, {}, 1, 1},
                                               {2, 2, 0, {}, 1, 1},
                                               {2, 3, 0, {}, 1, 1},
                                               {3, 0, 0, {}, 1, 1}};
  AddEstimates(est, estimates);
  for (int n = 1;; ++n) {  // fail the nth write of the deletion, until none is left to fail
    SCOPED_TRACE(n);
    ASSERT_LT(n, 50);
    plan->Arm(n, kStatusDiskFull);
    EXPECT_TRUE(DeleteJobEstRecords(est, 2));
    const bool failed = plan->failures > 0;
    plan->Disarm();
    const std::vector<int32_t> left = EstimateProjects(est);
    if (!failed) {
      EXPECT_GT(n, 3);  // each of the three deletes, at least, was made to fail
      EXPECT_EQ(left, (std::vector<int32_t>{1, 3}));
      break;
    }
    EXPECT_EQ(left, (std::vector<int32_t>{1, 2, 2, 2, 3}));
    if (left.size() != estimates.size()) break;
  }
  RealCloseFile(&est, __FILE__, __LINE__);
}

}  // namespace
