// Which operation carries out which command. What a command needs and takes is in messages.h.

#include "aiservice.h"
#include "aiservicecontroller.h"

#include <algorithm>
#include <iterator>

using ai::Command;

const AIService::CommandEntry AIService::commandTable[] = {
    {Command::Initialise, nullptr,
     [](AIService &service, const QVariantMap &params, const QString &) {
         return service.initAIService(params);
     }},
    {Command::SetExternalFaces, nullptr,
     [](AIService &service, const QVariantMap &params, const QString &requestID) {
         return service.controller->setExternalGallery(params, requestID);
     }},
    {Command::FetchFaces, "[fetchGalleryNew] ",
     [](AIService &service, const QVariantMap &params, const QString &requestID) {
         return service.controller->fetchGalleryNew(params, requestID);
     }},
    {Command::RegisterStudents, "[registerGallery] ",
     [](AIService &service, const QVariantMap &params, const QString &requestID) {
         return service.controller->registerGallery(params, requestID);
     }},
    {Command::ReplaceFace, nullptr,
     [](AIService &service, const QVariantMap &params, const QString &) {
         return service.controller->updateStudentGallery(params);
     }},
    {Command::RenameStudent, nullptr,
     [](AIService &service, const QVariantMap &params, const QString &) {
         return service.controller->updateStudentID(params);
     }},
    {Command::DeleteStudent, nullptr,
     [](AIService &service, const QVariantMap &params, const QString &) {
         return service.controller->deleteGallery(params);
     }},
    {Command::BestPictures, nullptr,
     [](AIService &service, const QVariantMap &, const QString &requestID) {
         return service.controller->bestGallery(requestID);
     }},
    {Command::ClearExternalFaces, nullptr,
     [](AIService &service, const QVariantMap &, const QString &requestID) {
         return service.controller->clearHistoryGalleries(requestID);
     }},
    {Command::Reset, nullptr,
     [](AIService &service, const QVariantMap &, const QString &requestID) {
         return service.controller->reset(requestID);
     }},
    {Command::StartHands, "[detectHandup] ",
     [](AIService &service, const QVariantMap &params, const QString &requestID) {
         return service.controller->detectHandup(params, requestID, 1);
     }},
    {Command::StopHands, "[detectHandup] ",
     [](AIService &service, const QVariantMap &params, const QString &requestID) {
         return service.controller->detectHandup(params, requestID, 0);
     }},
    {Command::StartAttention, "[detectConcerntration] ",
     [](AIService &service, const QVariantMap &params, const QString &requestID) {
         return service.controller->detectConcerntration(params, requestID, 1);
     }},
    {Command::StopAttention, "[detectConcerntration] ",
     [](AIService &service, const QVariantMap &params, const QString &requestID) {
         return service.controller->detectConcerntration(params, requestID, 0);
     }},
    {Command::StartFollowing, "[tracking] ",
     [](AIService &service, const QVariantMap &params, const QString &requestID) {
         return service.controller->tracking(params, requestID, 1);
     }},
    {Command::StopFollowing, "[tracking] ",
     [](AIService &service, const QVariantMap &params, const QString &requestID) {
         return service.controller->tracking(params, requestID, 0);
     }},
    {Command::StartGame, "",
     [](AIService &service, const QVariantMap &params,
        const QString &requestID) { return service.controller->startFunctionGame(params, requestID, 1); }},
    {Command::StopGame, "",
     [](AIService &service, const QVariantMap &params,
        const QString &requestID) { return service.controller->startFunctionGame(params, requestID, 0); }},
    {Command::Attributes, "[startAttributeDetection] ",
     [](AIService &service, const QVariantMap &params, const QString &requestID) {
         return service.controller->startAttributeDetection(params, requestID);
     }},
    {Command::StartRecording, nullptr,
     [](AIService &service, const QVariantMap &params, const QString &requestID) {
         return service.controller->startVideoRecord(params, requestID);
     }},
    {Command::StopRecording, nullptr,
     [](AIService &service, const QVariantMap &,
        const QString &requestID) { return service.controller->stopVideoRecord(requestID); }},
};

const AIService::CommandEntry &AIService::commandEntry(ai::Command command)
{
    static_assert(std::size(commandTable) == std::size(ai::commands), "one entry for each row");
    return *std::find_if(std::begin(commandTable), std::end(commandTable),
                         [command](const CommandEntry &entry) { return entry.command == command; });
}
