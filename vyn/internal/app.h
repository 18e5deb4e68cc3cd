// CVYNApp: the library's application object, the first singleton built at
// load and the last destroyed at unload. It keeps no state; it exists so that
// the library's start-up and shut-down hooks have their fixed place in the
// order of the singletons. Internal: not exported.
#pragma once

class CVYNApp {
 public:
  // Runs once after every singleton has been constructed; succeeds.
  virtual bool InitInstance() { return true; }
  // Runs once at unload, before the first singleton is destroyed.
  virtual int ExitInstance() { return 0; }
  virtual ~CVYNApp() = default;
};
