#include "vyn/core/memory_controls.h"

#include <algorithm>

CWnd::~CWnd() = default;

void CMemoryEdit::SetWindowText(const std::string& text) {
  vyn::MutexLock lock(&mutex_);
  text_ = text;
  sel_start_ = sel_end_ = 0;
}

std::string CMemoryEdit::GetWindowText() const {
  vyn::MutexLock lock(&mutex_);
  return text_;
}

void CMemoryEdit::EnableWindow(bool enable) {
  vyn::MutexLock lock(&mutex_);
  enabled_ = enable;
}

bool CMemoryEdit::IsWindowEnabled() const {
  vyn::MutexLock lock(&mutex_);
  return enabled_;
}

void CMemoryEdit::SetRedraw(bool redraw) {
  vyn::MutexLock lock(&mutex_);
  redraw_ = redraw;
}

bool CMemoryEdit::IsRedrawOn() const {
  vyn::MutexLock lock(&mutex_);
  return redraw_;
}

void CMemoryEdit::GetSel(int& start, int& end) const {
  vyn::MutexLock lock(&mutex_);
  start = sel_start_;
  end = sel_end_;
}

void CMemoryEdit::SetSel(int start, int end) {
  vyn::MutexLock lock(&mutex_);
  const int length = static_cast<int>(text_.size());
  // Like the real control: -1 or positions past the end mean the end.
  const auto clamp = [length](int position) {
    return position < 0 || position > length ? length : position;
  };
  sel_start_ = std::min(clamp(start), clamp(end));
  sel_end_ = std::max(clamp(start), clamp(end));
}

void CMemoryEdit::ReplaceSel(const std::string& text, bool /*can_undo*/) {
  std::string inserted;
  std::function<void(const std::string&)> observer;
  {
    vyn::MutexLock lock(&mutex_);
    const size_t kept = text_.size() - static_cast<size_t>(sel_end_ - sel_start_);
    const size_t room = static_cast<size_t>(limit_) > kept ? static_cast<size_t>(limit_) - kept : 0;
    inserted = text.substr(0, std::min(room, text.size()));
    text_.replace(static_cast<size_t>(sel_start_), static_cast<size_t>(sel_end_ - sel_start_),
                  inserted);
    sel_start_ = sel_end_ = sel_start_ + static_cast<int>(inserted.size());
    observer = observer_;
  }
  if (observer && !inserted.empty()) observer(inserted);
}

void CMemoryEdit::ScrollCaret() {}

void CMemoryEdit::SetLimitText(int limit) {
  vyn::MutexLock lock(&mutex_);
  limit_ = limit > 0 ? limit : 0x7FFFFFFE;
}

int CMemoryEdit::GetLimitText() const {
  vyn::MutexLock lock(&mutex_);
  return limit_;
}

void CMemoryEdit::SetInsertObserver(std::function<void(const std::string&)> observer) {
  vyn::MutexLock lock(&mutex_);
  observer_ = std::move(observer);
}

void CMemoryComboBox::SetWindowText(const std::string& text) {
  vyn::MutexLock lock(&mutex_);
  text_ = text;
}

std::string CMemoryComboBox::GetWindowText() const {
  vyn::MutexLock lock(&mutex_);
  return selection_ >= 0 ? entries_[static_cast<size_t>(selection_)] : text_;
}

void CMemoryComboBox::EnableWindow(bool enable) {
  vyn::MutexLock lock(&mutex_);
  enabled_ = enable;
}

bool CMemoryComboBox::IsWindowEnabled() const {
  vyn::MutexLock lock(&mutex_);
  return enabled_;
}

void CMemoryComboBox::ResetContent() {
  vyn::MutexLock lock(&mutex_);
  entries_.clear();
  selection_ = -1;
}

int CMemoryComboBox::AddString(const std::string& text) {
  vyn::MutexLock lock(&mutex_);
  entries_.push_back(text);
  return static_cast<int>(entries_.size()) - 1;
}

int CMemoryComboBox::SetCurSel(int index) {
  vyn::MutexLock lock(&mutex_);
  if (index < 0 || index >= static_cast<int>(entries_.size())) {
    selection_ = -1;
    return -1;
  }
  selection_ = index;
  return index;
}

int CMemoryComboBox::GetCurSel() const {
  vyn::MutexLock lock(&mutex_);
  return selection_;
}

std::vector<std::string> CMemoryComboBox::GetEntries() const {
  vyn::MutexLock lock(&mutex_);
  return entries_;
}

void CMemoryStatic::SetWindowText(const std::string& text) {
  vyn::MutexLock lock(&mutex_);
  text_ = text;
}

std::string CMemoryStatic::GetWindowText() const {
  vyn::MutexLock lock(&mutex_);
  return text_;
}

void CMemoryStatic::EnableWindow(bool enable) {
  vyn::MutexLock lock(&mutex_);
  enabled_ = enable;
}

bool CMemoryStatic::IsWindowEnabled() const {
  vyn::MutexLock lock(&mutex_);
  return enabled_;
}
