// The fault-injecting backend wrapper.
#include "rm_fault_backend.h"

namespace rm {
namespace {

class FaultBackend final : public Backend {
 public:
  FaultBackend(std::unique_ptr<Backend> inner, std::shared_ptr<FaultPlan> plan)
      : inner_(std::move(inner)), plan_(std::move(plan)) {}

  Status FindFile(const std::string& name, FileEntry* out) override {
    if (Status st = Read()) return st;
    return inner_->FindFile(name, out);
  }
  Status CreateFile(const FileEntry& entry, const TableShape& shape, int64_t* id) override {
    if (Status st = Write()) return st;
    return inner_->CreateFile(entry, shape, id);
  }
  Status DropFile(int64_t id) override {
    if (Status st = Write()) return st;
    return inner_->DropFile(id);
  }
  Status TouchFile(int64_t id) override {
    if (Status st = Write()) return st;
    return inner_->TouchFile(id);
  }
  Status OpenLocks(LockSpace space, bool read_only, std::unique_ptr<LockHolder>* out) override {
    return inner_->OpenLocks(space, read_only, out);
  }
  Table* AttachTable(const TableShape& shape) override { return inner_->AttachTable(shape); }
  void DetachTable(Table* table) override { inner_->DetachTable(table); }
  Status Begin() override {
    if (Status st = Write()) return st;
    return inner_->Begin();
  }
  Status Commit() override {
    if (Status st = Write()) return st;
    return inner_->Commit();
  }
  void Rollback() override { inner_->Rollback(); }
  Status Savepoint(int level) override {
    if (Status st = Write()) return st;
    return inner_->Savepoint(level);
  }
  Status ReleaseSavepoint(int level) override {
    if (Status st = Write()) return st;
    return inner_->ReleaseSavepoint(level);
  }
  Status RollbackToSavepoint(int level) override { return inner_->RollbackToSavepoint(level); }
  bool InTransaction() override { return inner_->InTransaction(); }
  void SetBusyWait(int ms) override { inner_->SetBusyWait(ms); }
  void Quiesce() override { inner_->Quiesce(); }
  Status Seek(Table* table, int slot, SeekOp op, const uint8_t* key, int32_t pos,
              uint64_t scan_owner, RowOut* out) override {
    if (Status st = Read()) return st;
    return inner_->Seek(table, slot, op, key, pos, scan_owner, out);
  }
  void EndCursor(uint64_t scan_owner) override { inner_->EndCursor(scan_owner); }
  Status ReadAt(Table* table, int32_t pos, int slot, RowOut* out) override {
    if (Status st = Read()) return st;
    return inner_->ReadAt(table, pos, slot, out);
  }
  Status Step(Table* table, int32_t pos, bool forward, RowOut* out) override {
    if (Status st = Read()) return st;
    return inner_->Step(table, pos, forward, out);
  }
  Status Count(Table* table, int64_t* count) override {
    if (Status st = Read()) return st;
    return inner_->Count(table, count);
  }
  Status Insert(Table* table, const uint8_t* data, const uint8_t* keys, int32_t* pos) override {
    if (Status st = Write()) return st;
    return inner_->Insert(table, data, keys, pos);
  }
  Status Update(Table* table, int32_t pos, int64_t version, const uint8_t* data,
                const uint8_t* keys, int64_t* new_version) override {
    if (Status st = Write()) return st;
    return inner_->Update(table, pos, version, data, keys, new_version);
  }
  Status Delete(Table* table, int32_t pos, int64_t version) override {
    if (Status st = Write()) return st;
    return inner_->Delete(table, pos, version);
  }
  // Undoing is part of abandoning a batch, like Rollback: never failed on purpose.
  Status Restore(Table* table, int32_t pos, int64_t version, const uint8_t* data,
                 const uint8_t* keys, bool exists) override {
    return inner_->Restore(table, pos, version, data, keys, exists);
  }
  Status Erase(Table* table, int32_t pos) override { return inner_->Erase(table, pos); }

 private:
  // Counts one call; answers the status to fail it with, or 0 to pass it on.
  Status Tick() {
    const int n = ++plan_->calls;
    const int at = plan_->fail_at;
    if (at <= 0 || n < at || (n > at && !plan_->sticky)) return 0;
    ++plan_->failures;
    return plan_->status;
  }
  Status Write() {
    Status st = Tick();
    if (st != 0 && plan_->undo_transaction) inner_->Rollback();
    return st;
  }
  Status Read() { return plan_->count_reads ? Tick() : 0; }

  std::unique_ptr<Backend> inner_;
  std::shared_ptr<FaultPlan> plan_;
};

}  // namespace

std::unique_ptr<Backend> WrapWithFaults(std::unique_ptr<Backend> inner,
                                        std::shared_ptr<FaultPlan> plan) {
  return std::make_unique<FaultBackend>(std::move(inner), std::move(plan));
}

}  // namespace rm
