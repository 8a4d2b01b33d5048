// A body of work that runs on a thread of its own (see uThread).
#pragma once

namespace KV_ORV {

class uRunnable {
 public:
  virtual ~uRunnable() = default;
  virtual void run() = 0;
};

}  // namespace KV_ORV
