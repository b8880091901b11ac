#include "tools/forward/Relp.h"

#include <algorithm>
#include <utility>

static constexpr size_t cs_uOutputMax = size_t{64} * 1024; // more is put into frames when this went out
static constexpr size_t cs_uReadMax = size_t{16} * 1024;
static constexpr int cs_iGood = 200;
static constexpr char cs_szOffer[] = "relp_version=0\nrelp_software=zebu2-forward\ncommands=syslog";

ZEBURelp::ZEBURelp(const ZEBURelpOptions& options, SSL_CTX* pTls, Say say)
    : m_options(options), m_pTls(pTls), m_say(std::move(say)),
      m_strName(options.server.strHost + " port " + options.server.strPort), m_window(options.uWindow)
{
}

size_t ZEBURelp::advance(ZEBUClock lNow)
{
    if (m_eState == Down && lNow >= m_lAttempt) {
        m_connection.emplace(m_options.server, m_pTls);
        m_eState = Connecting;
        m_lHeard = lNow;
    }
    if (m_eState == Connecting)
        connect(lNow);
    if (isOpen())
        receive(lNow);
    if (isOpen())
        send(lNow);
    const size_t uDelivered = m_window.takeDelivered();
    if (uDelivered > 0)
        m_lPause = ZEBU_PAUSE_FIRST;
    if (m_connection && owesAnswer() && lNow - m_lHeard >= m_options.lTimeout)
        drop("no answer", lNow);
    return uDelivered;
}

void ZEBURelp::connect(ZEBUClock lNow)
{
    switch (m_connection->connect()) {
    case ZEBUStep::Wait:
        return;
    case ZEBUStep::Failed:
        drop(m_connection->error(), lNow);
        return;
    case ZEBUStep::Done:
        break;
    }
    m_eState = Opening;
    m_lHeard = lNow;
    m_uNumber = 0;
    command("open", cs_szOffer);
}

// Gives the connection up, for a later one.
void ZEBURelp::drop(const std::string& strWhy, ZEBUClock lNow)
{
    if (m_eState == Closing) {
        m_eState = Closed;
    } else {
        m_say(m_strName + ": " + strWhy);
        m_bTold = true;
        m_eState = Down;
    }
    m_connection.reset();
    m_window.disconnected();
    m_strInput.clear();
    m_strOutput.clear();
    m_lAttempt = lNow + m_lPause;
    m_lPause = ZEBU_NextPause(m_lPause);
}

void ZEBURelp::receive(ZEBUClock lNow)
{
    char szBlock[cs_uReadMax];
    while (isOpen()) {
        size_t uRead = 0;
        const ZEBUStep eStep = m_connection->read(szBlock, sizeof szBlock, &uRead);
        if (eStep == ZEBUStep::Wait)
            return;
        if (eStep == ZEBUStep::Failed) {
            drop(m_connection->error(), lNow);
            return;
        }
        m_strInput.append(szBlock, uRead);
        takeFrames(lNow);
    }
}

// Uses the frames that are whole.
void ZEBURelp::takeFrames(ZEBUClock lNow)
{
    std::string_view svRest = m_strInput;
    for (;;) {
        ZEBUFrame frame;
        size_t uTaken = 0;
        const ZEBUFrameState eState = ZEBU_ReadFrame(svRest, &frame, &uTaken);
        if (eState == ZEBUFrameState::Partial)
            break;
        const std::string strTrouble =
            eState == ZEBUFrameState::Broken ? "sent what is no frame of RELP" : onFrame(frame, lNow);
        if (!strTrouble.empty()) {
            drop(strTrouble, lNow);
            return;
        }
        svRest.remove_prefix(uTaken);
    }
    m_strInput.erase(0, m_strInput.size() - svRest.size());
}

// Returns why the connection cannot go on, or an empty text.
std::string ZEBURelp::onFrame(const ZEBUFrame& frame, ZEBUClock lNow)
{
    m_lHeard = lNow;
    if (frame.svCommand == "serverclose")
        return "closed the session";
    if (frame.svCommand != "rsp")
        return "sent an unknown command";
    if (m_eState == Opening)
        return onOpened(frame);
    ZEBUWindow::Entry* pEntry = m_window.sent(frame.uNumber);
    if (pEntry)
        onAnswer(pEntry, frame.svData, lNow);
    else if (m_eState == Closing && frame.uNumber == m_uNumber)
        return "closed the session";
    else
        return "answered number " + std::to_string(frame.uNumber) + ", which was not sent";
    return "";
}

std::string ZEBURelp::onOpened(const ZEBUFrame& frame)
{
    if (ZEBU_AnswerCode(frame.svData) != cs_iGood)
        return "refused the session: " + std::string(frame.svData.substr(0, frame.svData.find('\n')));
    m_eState = Up;
    if (m_bTold)
        m_say(m_strName + ": connected");
    m_bTold = false;
    return "";
}

void ZEBURelp::onAnswer(ZEBUWindow::Entry* pEntry, std::string_view svAnswer, ZEBUClock lNow)
{
    if (ZEBU_AnswerCode(svAnswer) == cs_iGood) {
        m_window.acknowledge(pEntry);
        return;
    }
    m_say(m_strName + ": answered \"" + std::string(svAnswer) + "\" to: " + pEntry->strMessage);
    if (m_options.bSkipRefused)
        m_window.acknowledge(pEntry);
    else
        m_window.refuse(pEntry, lNow);
}

void ZEBURelp::send(ZEBUClock lNow)
{
    for (;;) {
        if (m_eState == Up)
            fillOutput(lNow);
        if (m_strOutput.empty())
            return;
        size_t uWritten = 0;
        const ZEBUStep eStep = m_connection->write(m_strOutput, &uWritten);
        if (eStep == ZEBUStep::Failed)
            drop(m_connection->error(), lNow);
        if (eStep != ZEBUStep::Done)
            return;
        m_strOutput.erase(0, uWritten);
    }
}

void ZEBURelp::fillOutput(ZEBUClock lNow)
{
    while (m_strOutput.size() < cs_uOutputMax) {
        const bool bOwed = m_window.hasSent();
        const ZEBUWindow::Entry* pEntry = m_window.next(nextNumber(), lNow);
        if (!pEntry)
            return;
        command("syslog", pEntry->strMessage);
        if (!bOwed)
            m_lHeard = lNow;
    }
}

void ZEBURelp::command(std::string_view svCommand, std::string_view svData)
{
    m_uNumber = nextNumber();
    ZEBU_AppendFrame(m_strOutput, m_uNumber, svCommand, svData);
}

void ZEBURelp::close(ZEBUClock lNow)
{
    if (m_eState != Up) {
        m_eState = Closed;
        m_connection.reset();
        return;
    }
    command("close", "");
    m_eState = Closing;
    m_lHeard = lNow;
}

ZEBUClock ZEBURelp::wakeTime() const
{
    if (m_eState == Down)
        return m_lAttempt;
    const ZEBUClock lRetry = m_eState == Up ? m_window.retryTime() : -1;
    if (!m_connection || !owesAnswer())
        return lRetry;
    const ZEBUClock lLimit = m_lHeard + m_options.lTimeout;
    return lRetry < 0 ? lLimit : std::min(lRetry, lLimit);
}
