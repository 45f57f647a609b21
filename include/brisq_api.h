#pragma once

#include <cstdint>
#include <map>
#include <string>

#include "brisq_export.h"

/// Modules, actions and calls between them.
namespace brisq_api {

/// Base of what a plug-in brings: made once by the plug-in's factory when the host builds its
/// modules, and owned by the host.
class BRISQ_API Module {
 public:
  /// @throws mgr_err::Error "exists" when a module of this name exists
  explicit Module(const std::string& name);
  virtual ~Module();
  Module(const Module&) = delete;
  Module& operator=(const Module&) = delete;

  const std::string& name() const noexcept { return name_; }

 private:
  std::string name_;
};

/// Base of the objects at file scope by which a plug-in makes a module's constructor function known
/// while it is loaded.
class BRISQ_API BaseRegisterModule {
 public:
  using ConstructorFn = Module* (*)();

  BaseRegisterModule() = default;
  /// Withdraws what this object has registered, so that an unloaded library leaves no pointer
  /// behind.
  ~BaseRegisterModule();
  BaseRegisterModule(const BaseRegisterModule&) = delete;
  BaseRegisterModule& operator=(const BaseRegisterModule&) = delete;

  /// Remembers `constructor` under the category `name`, for example "email_interface". The host
  /// calls it when it builds the modules of that category and owns what it returns; an exception
  /// from it leaves the host running without the module.
  void Register(const std::string& name, ConstructorFn constructor);
};

/// Registers `T`, a class derived from Module with a constructor without arguments.
template <class T>
class RegisterModule : public BaseRegisterModule {
 public:
  explicit RegisterModule(const std::string& name) { Register(name, &RegisterModule::Constructor); }

  /// Makes one `T`. When its constructor throws, the storage is freed and the exception passes on.
  static Module* Constructor() { return new T; }
};

/// One call of an action: its parameters, the rights of who calls, and what the action answers.
///
/// Belongs to the thread that made it.
class BRISQ_API Session {
 public:
  /// All rights: calls from inside the host and from its administrator.
  static constexpr std::uint32_t kAdministrator = 0xFFFFFFFF;

  /// @param params  "NAME=VALUE" pairs joined by "&", values percent-encoded; empty for none
  /// @param access  bits that the caller holds, compared with the action's access mask
  explicit Session(const std::string& params = {}, std::uint32_t access = kAdministrator);

  /// Value of a parameter; empty when it was not given.
  std::string Param(const std::string& name) const;
  std::uint32_t access() const noexcept { return access_; }

  /// Text that the action gives back to its caller; starts empty.
  std::string& Answer() noexcept { return answer_; }

 private:
  std::map<std::string, std::string> params_;
  std::uint32_t access_;
  std::string answer_;
};

/// A named operation that the host runs on request, from another module, or by the clock.
///
/// Constructing one enters it into the host's table of actions under its name; destroying it takes
/// it out. Registered actions are called from any thread, also at once: Execute must allow that.
class BRISQ_API Action {
 public:
  /// Mask that nobody but an administrator's session holds: the three highest bits.
  static constexpr std::uint32_t kAdministratorOnly = 0xE0000000;

  /// @param name    dotted lower case, for example "dovecot.reload"
  /// @param access  mask of rights: a caller must hold all of its bits. Kept as given.
  /// @param parent  action whose access rule applies as well; null for none; must outlive this one
  /// @throws mgr_err::Error "exists" when the name is taken: the table is unchanged
  Action(const std::string& name, std::uint32_t access, const Action* parent);
  virtual ~Action();
  Action(const Action&) = delete;
  Action& operator=(const Action&) = delete;

  const std::string& name() const noexcept { return name_; }
  std::uint32_t access() const noexcept { return access_; }

  /// Kind of action for lists, "action" by default.
  virtual std::string type() const;
  /// True when running it may change something; true by default.
  virtual bool IsModify(const Session& session) const;
  /// True when a panel should offer it in its menu; false by default.
  virtual bool IsInMenu(const Session& session) const;
  /// Name under which several steps of one flow belong together; the action's name by default.
  virtual std::string FlowId(const Session& session) const;
  /// Prepares a session for the action's flow; does nothing by default.
  virtual void set_flow_flags(Session& session) const;
  /// True when the session holds the rights of this action's mask and of its parents'.
  virtual bool Authorize(const Session& session) const;
  /// The rule for the caller beyond the mask; true by default.
  virtual bool AuthorizeBySession(const Session& session) const;
  /// Refuses parameters before anything is done; accepts all by default.
  /// @throws mgr_err::Error "value"
  virtual void Validate(Session& session) const;
  /// Does the work. What it throws reaches the caller of the action.
  virtual void Execute(Session& session) const = 0;
  /// Refuses a session that Authorize or AuthorizeBySession does not admit.
  /// @throws mgr_err::Error "access"
  virtual void CheckAccess(const Session& session) const;

 private:
  std::string name_;
  std::uint32_t access_;
  const Action* parent_;
};

/// Runs an action from inside the host, with all rights, on the calling thread, and returns its
/// answer.
/// @param params  as for Session
/// @throws mgr_err::Error "missed" when no action has this name; whatever the action throws
BRISQ_API std::string InternalCall(const std::string& action, const std::string& params);

/// Queues a shell command line. The commands of one request run in order, one by one, after the
/// request has been committed; those of a request that fails never run. Without a request the
/// command runs when the process next runs what is due. The caller gets no result: failures are
/// logged. Equal commands are not merged.
BRISQ_API void ExecuteLater(const std::string& command);

}  // namespace brisq_api
