// In-memory window controls: they keep what a real control would show, for
// tests and for programs without a screen.
//
// Thread-safety: each object guards its state with a mutex, so a test may read
// a control while a service writes it.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "vyn/base/export.h"
#include "vyn/base/mutex.h"
#include "vyn/core/window_controls.h"

// An edit that keeps its text, selection and limit in memory. Positions are
// byte offsets into the text; ReplaceSel inserts only what the limit leaves
// room for.
class VYN_EXPORT CMemoryEdit : public CEdit {
 public:
  // The edit controls' usual limit.
  static constexpr int kDefaultLimit = 30000;

  // Replaces the text and moves the selection to its start.
  void SetWindowText(const std::string& text) override;
  // A copy of the whole text.
  std::string GetWindowText() const override;
  // Records the state; nothing else changes with it.
  void EnableWindow(bool enable) override;
  // The state last set by EnableWindow; true at first.
  bool IsWindowEnabled() const;

  void SetRedraw(bool redraw) override;
  void GetSel(int& start, int& end) const override;
  void SetSel(int start, int end) override;
  void ReplaceSel(const std::string& text, bool can_undo) override;
  void ScrollCaret() override;
  // A limit of 0 or below means no practical limit (0x7FFFFFFE).
  void SetLimitText(int limit) override;
  // kDefaultLimit until SetLimitText is called.
  int GetLimitText() const override;

  // The state last set by SetRedraw; true at first.
  bool IsRedrawOn() const;
  // Called with every text that ReplaceSel inserted, after it is in place,
  // so that a headless program can echo the view (for example to a terminal).
  void SetInsertObserver(std::function<void(const std::string&)> observer);

 private:
  mutable vyn::Mutex mutex_;
  std::string text_ VYN_GUARDED_BY(mutex_);
  int sel_start_ VYN_GUARDED_BY(mutex_) = 0;
  int sel_end_ VYN_GUARDED_BY(mutex_) = 0;
  int limit_ VYN_GUARDED_BY(mutex_) = kDefaultLimit;
  bool enabled_ VYN_GUARDED_BY(mutex_) = true;
  bool redraw_ VYN_GUARDED_BY(mutex_) = true;
  std::function<void(const std::string&)> observer_ VYN_GUARDED_BY(mutex_);
};

// A drop-down list kept in memory: its entries, selection and a free text.
class VYN_EXPORT CMemoryComboBox : public CComboBox {
 public:
  // Sets the free text, shown while no entry is selected.
  void SetWindowText(const std::string& text) override;
  // The selected entry, or the free text when nothing is selected.
  std::string GetWindowText() const override;
  // Records the state; nothing else changes with it.
  void EnableWindow(bool enable) override;
  // The state last set by EnableWindow; true at first.
  bool IsWindowEnabled() const;

  // Removes every entry and clears the selection; the free text stays.
  void ResetContent() override;
  int AddString(const std::string& text) override;
  // An index outside the entries clears the selection and returns -1.
  int SetCurSel(int index) override;
  int GetCurSel() const override;
  // A copy of the entries in the order they were added.
  std::vector<std::string> GetEntries() const;

 private:
  mutable vyn::Mutex mutex_;
  std::vector<std::string> entries_ VYN_GUARDED_BY(mutex_);
  int selection_ VYN_GUARDED_BY(mutex_) = -1;
  bool enabled_ VYN_GUARDED_BY(mutex_) = true;
  std::string text_ VYN_GUARDED_BY(mutex_);
};

// A label kept in memory.
class VYN_EXPORT CMemoryStatic : public CStatic {
 public:
  // Replaces the label's text.
  void SetWindowText(const std::string& text) override;
  // A copy of the label's text.
  std::string GetWindowText() const override;
  // Records the state; nothing else changes with it.
  void EnableWindow(bool enable) override;
  // The state last set by EnableWindow; true at first.
  bool IsWindowEnabled() const;

 private:
  mutable vyn::Mutex mutex_;
  std::string text_ VYN_GUARDED_BY(mutex_);
  bool enabled_ VYN_GUARDED_BY(mutex_) = true;
};
