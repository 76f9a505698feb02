/** @file
 * The service end of the remote interface KavrelAppApi, for the viewer application.
 *
 * A viewer derives from KavrelAppApi::ServiceBase, gives a factory of such services to one
 * KavrelAppApi object and runs its GLib main loop:
 *
 *     class Service : public stub::KavrelAppApi::ServiceBase { ... 53 operations ... };
 *     class Factory : public stub::KavrelAppApi::ServiceBase::Factory {
 *       std::unique_ptr<ServiceBase> MakeService(std::string sender,
 *                                                std::string instance) override {
 *         return std::make_unique<Service>(std::move(sender), std::move(instance));
 *       }
 *     };
 *     stub::KavrelAppApi app_api;
 *     app_api.Listen(std::make_shared<Factory>());
 *     g_main_loop_run(loop);
 *
 * Names, order of fields and order of virtual operations are contract: operations are appended,
 * never inserted.
 *
 * Thread: everything here belongs to the thread that made the KavrelAppApi object. Its main context
 * delivers connections, requests and disconnections, and requests run right there, one at a time: a
 * long operation delays every client.
 *
 * An exception that leaves an operation is not caught by the stub: what follows is up to the
 * rpc-port service that delivered the request (the bundled one logs it, drops that client and
 * serves on).
 */
#pragma once

#include <kavrel/export.h>

#include <atomic>
#include <condition_variable>
#include <deque>
#include <list>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

/// Classes over the rpc-port service.
namespace rpc_port {
/// The remote interface KavrelAppApi, the viewer's end.
namespace KavrelAppApiStub {
/// What a viewer uses of it.
namespace stub {

/// Base of what the stub throws; carries nothing.
class KAVREL_EXPORT Exception {};
/// The stub could not be made or could not listen.
class KAVREL_EXPORT InvalidIOException : public Exception {};

/// Something for a worker to run.
class KAVREL_EXPORT Job {
 public:
  /// The work itself.
  class KAVREL_EXPORT IEvent {
   public:
    virtual ~IEvent();
    /// Does the work, on the worker.
    virtual void Run() = 0;
  };

  /// Makes a job.
  ///
  /// @param event  not owned; with null, running the job does nothing
  explicit Job(IEvent* event) : event_(event) {}
  /// @{
  /// Copies share the work.
  Job(const Job&) = default;
  Job& operator=(const Job&) = default;
  /// @}
  virtual ~Job();

  /// Does the work.
  void Run() {
    if (event_ != nullptr) event_->Run();
  }

 private:
  IEvent* event_;
};

/// First in, first out, between any threads. Unbounded: its users push one item a service.
template <class T>
class SharedQueue {
 public:
  SharedQueue() = default;
  SharedQueue(const SharedQueue&) = delete;
  SharedQueue& operator=(const SharedQueue&) = delete;
  virtual ~SharedQueue() = default;

  /// Puts an item at the end and wakes one who waits.
  void Push(T item) {
    const std::lock_guard<std::mutex> lock(mutex_);
    queue_.push_back(std::move(item));
    cond_var_.notify_one();
  }

  /// Takes the first item; blocks until there is one, and there is no other way out.
  ///
  /// @param item  set to the item
  void WaitAndPop(T& item) {
    std::unique_lock<std::mutex> lock(mutex_);
    while (queue_.empty()) cond_var_.wait(lock);
    item = std::move(queue_.front());
    queue_.pop_front();
  }

 private:
  std::deque<T> queue_;
  std::mutex mutex_;
  std::condition_variable cond_var_;
};

/// One worker thread that runs jobs one at a time in the order of their arrival. Made and destroyed
/// on the stub's thread, never on its own worker. The constructor throws std::system_error when no
/// thread can be had; the destructor runs what was queued before it and joins.
class KAVREL_EXPORT ActiveObject : public Job::IEvent {
 public:
  ActiveObject();
  ActiveObject(const ActiveObject&) = delete;
  ActiveObject& operator=(const ActiveObject&) = delete;
  ~ActiveObject() override;

  /// The stop job's work: ends the worker after this job. Runs on the worker.
  void Run() override;

  /// Queues a job; from any thread.
  void Push(std::shared_ptr<Job> job) { queue_.Push(std::move(job)); }

 private:
  void WorkUntilDone();

  std::thread thread_;
  bool done_ = false;
  SharedQueue<std::shared_ptr<Job>> queue_;
};

/// The service: listens on port "KavrelAppApi" of this process's application id, keeps one service
/// object a connected client, and turns request parcels into calls of its operations.
class KAVREL_EXPORT KavrelAppApi {
 public:
  /// One connected client. Owned by the stub; kept alive by a call in progress.
  class KAVREL_EXPORT ServiceBase {
   public:
    /// Makes the service of a client that connects.
    class KAVREL_EXPORT Factory {
     public:
      virtual ~Factory();
      /// Makes the service of one client.
      ///
      /// @param sender    the client's application id as it gave it; proves nothing
      /// @param instance  the connection
      /// @return the service, which becomes the stub's; null, or a std::exception, refuses the
      /// client
      virtual std::unique_ptr<ServiceBase> MakeService(std::string sender,
                                                       std::string instance) = 0;
    };

    ServiceBase(const ServiceBase&) = delete;
    ServiceBase& operator=(const ServiceBase&) = delete;
    virtual ~ServiceBase();

    /// Called once, when the client has connected. Must not destroy the stub; may Disconnect().
    virtual void OnClientConnected() = 0;
    /// Called once, when the client has gone or the stub is being destroyed.
    virtual void OnClientDisconnected() = 0;

    /// @name Operations
    /// One operation a method, in order of method id. Arguments come as the client sent them, in
    /// wire order; what they mean is the viewer's choice - what kavrel-viewer takes them for stands
    /// in app_api.h. An operation with int& parameters stores its out values there; what it returns
    /// is sent to the waiting client.
    /// @{

    /// Method 2: switch the viewer to another source (type, number, label, caller).
    virtual void ChangeSource(std::string a1, std::string a2, std::string a3, std::string a4) = 0;
    /// Method 3: ask where the selection window is and how large (left, top, width, height).
    virtual bool GetSelectionWindowInfo(int& out1, int& out2, int& out3, int& out4) = 0;
    /// Method 4: ask within which limits the selection window moves (least_left, least_top,
    /// greatest_left, greatest_top).
    virtual bool GetSelectionWindowMoveRange(int& out1, int& out2, int& out3, int& out4) = 0;
    /// Method 5: keep the selection window's position (left, top).
    virtual bool StoreSelectionWindowInfo(int a1, int a2) = 0;
    /// Method 6: move the selection window (left, top).
    virtual bool MoveSelectionWindowTo(int a1, int a2) = 0;
    /// Method 7: set the selection window's zoom level (level).
    virtual bool ChangeSelectionWindowZoomLevel(int a1) = 0;
    /// Method 8: ask for the viewer's window size (size).
    virtual bool GetWindowSize(int& out1) = 0;
    /// Method 9: set the viewer's window size (size).
    virtual bool SetWindowSize(int a1) = 0;
    /// Method 10: send a key to a device controlled by the multi-brand remote (device_type,
    /// device_number, action, key, options).
    virtual void SendMbrKey(int a1, int a2, int a3, std::string a4,
                            std::vector<std::string> a5) = 0;
    /// Method 11: show the channel banner (show).
    virtual void ShowChannelBanner(int a1) = 0;
    /// Method 12: show the caption banner (show, text).
    virtual void ShowCaption(int a1, std::string a2) = 0;
    /// Method 13: show the source banner (show, source, label, detail).
    virtual void ShowSourceBanner(int a1, std::string a2, std::string a3, std::string a4) = 0;
    /// Method 14: show the multi-track sound banner (show, mode).
    virtual void ShowMTSBanner(int a1, std::string a2) = 0;
    /// Method 15: show the rating banner (show, rating, reason).
    virtual void ShowRatingBanner(int a1, std::string a2, std::string a3) = 0;
    /// Method 16: show the no-signal banner (show, text).
    virtual void ShowNosignalBanner(int a1, std::string a2) = 0;
    /// Method 17: show the recording information (show, text).
    virtual void ShowPVRInfo(int a1, std::string a2) = 0;
    /// Method 18: show the sleep timer pop-up (show).
    virtual void ShowSleepTimerPopup(int a1) = 0;
    /// Method 19: show the automatic power-off pop-up (show).
    virtual void ShowAutoPowerOffPopup(int a1) = 0;
    /// Method 20: show the fan error pop-up (show).
    virtual void ShowFanErrorPopup(int a1) = 0;
    /// Method 21: show the projector heat-sink error pop-up (show).
    virtual void ShowProjectorHsmErrorPopup(int a1) = 0;
    /// Method 22: show the display notification (show, text).
    virtual void ShowQdDisplayNoti(int a1, std::string a2) = 0;
    /// Method 23: show the reduced-brightness pop-up (show).
    virtual void ShowPellwinBrightnessReducePopup(int a1) = 0;
    /// Method 24: show the hotel's no-channel pop-up (show).
    virtual void ShowHotelNoChannelPopup(int a1) = 0;
    /// Method 25: show the hospital's no-channel pop-up (show).
    virtual void ShowHospitalNoChannelPopup(int a1) = 0;
    /// Method 26: show the insufficient-memory pop-up (show).
    virtual void ShowInsufficientMemoryPopup(int a1) = 0;
    /// Method 27: show the sign-language zoom set-up (show).
    virtual void ShowSignZoomSetup(int a1) = 0;
    /// Method 28: show the return-to-previous-channel pop-up (show).
    virtual void ShowReturnPrevChannelPopup(int a1) = 0;
    /// Method 29: show the no-signal power-off timer (show).
    virtual void ShowNoSignalPowerOffTimerPopup(int a1) = 0;
    /// Method 30: show the key guide banner (show, page).
    virtual void ShowKeyGuideBanner(int a1, int a2) = 0;
    /// Method 31: show the game mode banner (show, game_mode).
    virtual void ShowGameModeBanner(int a1, bool a2) = 0;
    /// Method 32: show the one-connect view of an LED wall (show, text).
    virtual void ShowOCLViewForMLED(int a1, std::string a2) = 0;
    /// Method 33: send a free command (command, argument).
    virtual void SendCommand(std::string a1, std::string a2) = 0;
    /// Method 34: allow a banner to be shown (banner, caller).
    virtual void EnableBanner(std::string a1, std::string a2) = 0;
    /// Method 35: keep a banner from being shown (banner, caller).
    virtual void DisableBanner(std::string a1, std::string a2) = 0;
    /// Method 36: tell the viewer to initialise (argument).
    virtual void SendInitCommand(std::string a1) = 0;
    /// Method 37: hide a banner (banner, caller).
    virtual void SendHideBanner(std::string a1, std::string a2) = 0;
    /// Method 38: set the viewer's language (language).
    virtual void SetLanguage(std::string a1) = 0;
    /// Method 39: send a command to a plug-in (plugin, command).
    virtual void PluginCmd(std::string a1, std::string a2) = 0;
    /// Method 40: give the viewer a hint about the TV service (hint).
    virtual void SetTVSHint(std::string a1) = 0;
    /// Method 41: act on a notification (notification, action).
    virtual void NotificationCommand(std::string a1, int a2) = 0;
    /// Method 42: tune to a channel (number, name, source, caller).
    virtual void TuneChannel(std::string a1, std::string a2, std::string a3, std::string a4) = 0;
    /// Method 43: tune the main picture (number, caller).
    virtual void TuneChannelMain(std::string a1, std::string a2) = 0;
    /// Method 44: tune by major and minor channel number (major, minor, caller).
    virtual void TuneChannelMajor(int a1, int a2, std::string a3) = 0;
    /// Method 45: tune the picture-in-picture window (number, caller).
    virtual void TuneChannelPip(std::string a1, std::string a2) = 0;
    /// Method 46: tune by service id (service_id, transport_stream_id, network_id, caller).
    virtual void SvcIdTune(std::string a1, std::string a2, std::string a3, std::string a4) = 0;
    /// Method 47: show the loading screen (text).
    virtual void ShowLoading(std::string a1) = 0;
    /// Method 48: send a discrete remote-control command (command, argument).
    virtual void SendDiscreteCommand(std::string a1, std::string a2) = 0;
    /// Method 49: send a key of the automatic remote control (key, device, action, option, caller).
    virtual void SendAutoRemoconKey(std::string a1, std::string a2, std::string a3, std::string a4,
                                    std::string a5) = 0;
    /// Method 50: send a storage command (command).
    virtual void SendStorageCommand(std::string a1) = 0;
    /// Method 51: tell the viewer the state of the HbbTV application (state).
    virtual void SetHbbTVState(std::string a1) = 0;
    /// Method 52: tune as the voice application asks (channel).
    virtual void VoiceAppRequestTune(std::string a1) = 0;
    /// Method 53: leave teletext (reason).
    virtual void ExitTTX(std::string a1) = 0;
    /// Method 54: ask for the viewer's state on behalf of Vistane (state).
    virtual int CheckStateForVistane(int& out1) = 0;
    /// @}

    /// The client's application id as it gave it.
    const std::string& GetSender() const { return sender_; }
    /// The connection.
    const std::string& GetInstance() const { return instance_; }

    /// Stores the connection's callback port (an rpc_port_h); the stub calls it.
    void SetPort(void* port) { port_ = port; }

    /// Asks rpc-port to end the connection. Known trap, kept for those who rely on it: success is
    /// logged as a failure and keeps the port; only a failure clears it.
    void Disconnect();

   protected:
    /// Starts the service's worker; throws std::system_error when no thread can be had.
    ServiceBase(std::string sender, std::string instance);

   private:
    std::string sender_;
    std::string instance_;
    void* port_ = nullptr;
    std::unique_ptr<ActiveObject> active_object_;
  };

  /// Something a client asked to be called back about. No method of the interface takes one yet.
  class KAVREL_EXPORT CallbackBase {
   public:
    /// Makes a callback with the process's next number.
    ///
    /// @param id    what kind of callback it is
    /// @param once  whether it is over after its first call
    CallbackBase(int id, bool once);
    virtual ~CallbackBase();

    /// What kind of callback it is.
    int GetId() const { return id_; }
    /// Its number.
    int GetSeqId() const { return seq_id_; }
    /// Whether it is over after its first call.
    bool IsOnce() const { return once_; }
    /// Kind and number, as "3::17".
    std::string GetTag() const;

   private:
    friend KAVREL_EXPORT void* operator<<(void* parcel, const CallbackBase& callback);
    friend KAVREL_EXPORT void* operator>>(void* parcel, CallbackBase& callback);

    static std::atomic<int> seq_num_;

    int id_;
    int seq_id_;
    bool once_;
  };

  /// Makes the stub; throws InvalidIOException. Nobody can connect before Listen().
  KavrelAppApi();
  KavrelAppApi(const KavrelAppApi&) = delete;
  KavrelAppApi& operator=(const KavrelAppApi&) = delete;
  /// Tells every remaining service that its client is gone, then closes the port. May run inside an
  /// operation or inside OnClientDisconnected().
  ~KavrelAppApi();

  /// Begins to serve. Throws InvalidIOException when the port's name is refused (-22) or taken
  /// (-5); any other failure is only logged.
  ///
  /// @param factory  makes the services, in place of any earlier one
  void Listen(std::shared_ptr<ServiceBase::Factory> factory);

 private:
  static void OnConnectedCB(const char* sender, const char* instance, void* user_data);
  static void OnDisconnectedCB(const char* sender, const char* instance, void* user_data);
  static int OnReceivedCB(const char* sender, const char* instance, void* port, void* user_data);

  std::shared_ptr<ServiceBase> FindService(const std::string& instance) const;

  void* stub_ = nullptr;
  std::shared_ptr<ServiceBase::Factory> factory_;
  std::list<std::shared_ptr<ServiceBase>> services_;
};

/// @{
/// The callback header in a parcel (an rpc_port_parcel_h): int32 id, int32 seq id, bool once.
KAVREL_EXPORT void* operator<<(void* parcel, const KavrelAppApi::CallbackBase& callback);
KAVREL_EXPORT void* operator>>(void* parcel, KavrelAppApi::CallbackBase& callback);
/// @}

/// @{
/// A string list in a parcel: array count, then one string an element. Reading replaces the list; a
/// malformed list leaves it with what could be read.
KAVREL_EXPORT void* operator<<(void* parcel, const std::vector<std::string>& strings);
KAVREL_EXPORT void* operator>>(void* parcel, std::vector<std::string>& strings);
/// @}

}  // namespace stub
}  // namespace KavrelAppApiStub
}  // namespace rpc_port
