// The interface for astronomy programs.
#ifndef VXCAMD_ALPACA_DOOR_H
#define VXCAMD_ALPACA_DOOR_H

#include "alpaca/alpaca_camera.h"
#include "alpaca/alpaca_form.h"
#include "alpaca/alpaca_members.h"
#include "http/http_message.h"

#include <atomic>
#include <memory>
#include <string>
#include <vector>

namespace vxcam {

// Management and one camera device for each camera.
//
// Threads: any. It does not own the shared cameras.
class AlpacaDoor
{
public:
    AlpacaDoor(const std::vector<std::unique_ptr<SharedCamera>>& cameras,
               const AlpacaOptions& options);

    // Whether that path is one of this door's, or looks like one.
    static bool isMine(const std::string& path);

    // Refusals of the protocol are texts with status 400 and above; those of a device have status
    // 200 and an error number.
    HttpResponse answer(const HttpRequest& request);
    static HttpResponse refused(const Refusal& refusal);

private:
    HttpResponse answerThrowing(const HttpRequest& request);
    HttpResponse answerManagement(const HttpRequest& request);
    HttpResponse answerSetup(const HttpRequest& request) const;
    HttpResponse answerMember(const HttpRequest& request, AlpacaCamera& camera,
                              const AlpacaMember& member);
    HttpResponse answerImage(const HttpRequest& request, AlpacaCamera& camera);
    AlpacaCamera& cameraOf(const std::string& number) const;
    Transactions transactionsOf(const AlpacaForm& form);

    const AlpacaOptions options_;
    std::vector<std::unique_ptr<AlpacaCamera>> cameras_;
    std::atomic<uint32_t> transaction_{0};
};

} // namespace vxcam

#endif
