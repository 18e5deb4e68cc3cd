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

class VYN_EXPORT CMemoryEdit : public CEdit {
 public:
  // The edit controls' usual limit.
  static constexpr int kDefaultLimit = 30000;

  void SetWindowText(const std::string& text) override;
  std::string GetWindowText() const override;
  void EnableWindow(bool enable) override;
  bool IsWindowEnabled() const;

  void SetRedraw(bool redraw) override;
  void GetSel(int& start, int& end) const override;
  void SetSel(int start, int end) override;
  void ReplaceSel(const std::string& text, bool can_undo) override;
  void ScrollCaret() override;
  void SetLimitText(int limit) override;
  int GetLimitText() const override;

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

class VYN_EXPORT CMemoryComboBox : public CComboBox {
 public:
  void SetWindowText(const std::string& text) override;
  std::string GetWindowText() const override;
  void EnableWindow(bool enable) override;
  bool IsWindowEnabled() const;

  void ResetContent() override;
  int AddString(const std::string& text) override;
  int SetCurSel(int index) override;
  int GetCurSel() const override;
  std::vector<std::string> GetEntries() const;

 private:
  mutable vyn::Mutex mutex_;
  std::vector<std::string> entries_ VYN_GUARDED_BY(mutex_);
  int selection_ VYN_GUARDED_BY(mutex_) = -1;
  bool enabled_ VYN_GUARDED_BY(mutex_) = true;
  std::string text_ VYN_GUARDED_BY(mutex_);
};

class VYN_EXPORT CMemoryStatic : public CStatic {
 public:
  void SetWindowText(const std::string& text) override;
  std::string GetWindowText() const override;
  void EnableWindow(bool enable) override;
  bool IsWindowEnabled() const;

 private:
  mutable vyn::Mutex mutex_;
  std::string text_ VYN_GUARDED_BY(mutex_);
  bool enabled_ VYN_GUARDED_BY(mutex_) = true;
};
