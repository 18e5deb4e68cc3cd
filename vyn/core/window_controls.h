// The window controls that services write to: a multi-line or single-line
// edit (CEdit), a drop-down list (CComboBox) and a static label (CStatic).
// Each is an abstract class with exactly the operations the services send;
// an application implements them with its toolkit. vyn/core/memory_controls.h
// holds in-memory implementations for tests and headless programs.
//
// Thread-safety: the services call a control from one thread at a time (the
// log's output thread, or the dialog's thread); an implementation that shows
// the control elsewhere must hand the calls over itself.
#pragma once

#include <string>

#include "vyn/base/export.h"

// What every control offers: its text and whether the user may operate it.
// Services hold controls by reference and never own or delete them.
class VYN_EXPORT CWnd {
 public:
  virtual ~CWnd();
  // Replaces the whole text the control shows.
  virtual void SetWindowText(const std::string& text) = 0;
  // The text the control shows now (a drop-down list: its selected entry).
  virtual std::string GetWindowText() const = 0;
  // Lets the user operate the control (true) or greys it out (false); the
  // services may still write a disabled control.
  virtual void EnableWindow(bool enable) = 0;
};

// A text view that services append to through the selection, as the log
// does: it selects the end, replaces the selection with the new line, and
// (without auto-scroll) puts the user's selection back.
class VYN_EXPORT CEdit : public CWnd {
 public:
  // Switches redrawing off while several changes are made, and on again.
  virtual void SetRedraw(bool redraw) = 0;
  // The current selection as character positions [start, end).
  virtual void GetSel(int& start, int& end) const = 0;
  // Selects [start, end); positions beyond the text mean its end.
  virtual void SetSel(int start, int end) = 0;
  // Replaces the selection with `text` (as far as the text limit allows) and
  // puts the caret behind it.
  virtual void ReplaceSel(const std::string& text, bool can_undo) = 0;
  // Scrolls the caret into view.
  virtual void ScrollCaret() = 0;
  // The most characters the control holds.
  virtual void SetLimitText(int limit) = 0;
  // The limit now in force, in characters.
  virtual int GetLimitText() const = 0;
};

// A drop-down list of text entries indexed from 0.
class VYN_EXPORT CComboBox : public CWnd {
 public:
  // Removes every entry and clears the selection.
  virtual void ResetContent() = 0;
  // Appends an entry; returns its index.
  virtual int AddString(const std::string& text) = 0;
  // Selects an entry; -1 clears the selection.
  virtual int SetCurSel(int index) = 0;
  // The selected index, or -1 (CB_ERR) when nothing is selected.
  virtual int GetCurSel() const = 0;
};

// A label: only the operations every control has.
class VYN_EXPORT CStatic : public CWnd {};
