#include "inst_int.h"

#include "diag.h"
#include "dispatch.h"
#include "zebfile.h"

#include <cerrno>

namespace {

// Calls the hook that the parameters carry; a link that it reports lost is serviced no more.
void serve_serial(SERIALCOM_link *serial, BOOL *up, const INST_dispatch_trv_param *p) {
    if (!*up)
        return;
    BOOL served = TRUE;
    if (p->cbst != nullptr)
        served = p->cbst(serial, p->rx_fds, p->tx_fds, p->fd_max, p->parent_thd);
    else if (p->cbmid != nullptr)
        served = p->cbmid(serial, p->rx_fds, p->tx_fds, p->fd_max);
    else if (p->cbpst != nullptr)
        served = p->cbpst(serial, p->rx_fds, p->tx_fds, p->sel_rx_fds, p->sel_tx_fds, p->fd_max);
    if (!served)
        *up = FALSE;
}

void serve_further(void *data, void *param) {
    INST_ext_link *ext = zeb::ext_of(data);
    serve_serial(ext->lnk, &ext->lnk_up, static_cast<INST_dispatch_trv_param *>(param));
}

void serve_serials(INST_link *lnk, INST_dispatch_trv_param *p) {
    serve_serial(&lnk->sc_lnk, &lnk->sc_lnk_up, p);
    serve_serial(&lnk->log_sc_lnk, &lnk->log_sc_lnk_up, p);
    LL_transverse_forwards(&lnk->ext_sc_links, serve_further, p);
}

// Every pass holds the link's mutex and goes through the modules in one order: descriptors,
// messages, serial links.
class InstrumentLoop final : public zeb::ServiceLoop {
  public:
    explicit InstrumentLoop(INST_link *lnk) : lnk_(lnk) {}

    void start() {
        const zeb::CancelGuard uncancelled;
        ZEB_LOCK(guard, &lnk_->mtx);
        ZEBFILE_dispatch_init(&sets_.rx, &sets_.tx, &sets_.fd_max, lnk_->thd);
        if (lnk_->msg_lnk_up &&
            !ZEBMSG_dispatch_init(&lnk_->msg_lnk, &sets_.rx, &sets_.tx, &sets_.fd_max, lnk_->thd))
            lnk_->msg_lnk_up = FALSE;
        INST_dispatch_trv_param param = serial_pass();
        param.cbst = SERIALCOM_dispatch_init;
        serve_serials(lnk_, &param);
    }

  private:
    void pre_select() override {
        ZEB_LOCK(guard, &lnk_->mtx);
        ZEBFILE_dispatch_pre_select(&sets_.rx, &sets_.tx, &sets_.fd_max);
        if (lnk_->msg_lnk_up &&
            !ZEBMSG_dispatch_pre_select(&lnk_->msg_lnk, &sets_.rx, &sets_.tx, &sets_.fd_max))
            lnk_->msg_lnk_up = FALSE;
        INST_dispatch_trv_param param = serial_pass();
        param.cbmid = SERIALCOM_dispatch_pre_select;
        serve_serials(lnk_, &param);
    }

    void post_select() override {
        ZEB_LOCK(guard, &lnk_->mtx);
        ZEBFILE_dispatch_post_select(&sets_.rx, &sets_.tx, &sets_.sel_rx, &sets_.sel_tx,
                                     &sets_.fd_max);
        if (lnk_->msg_lnk_up &&
            !ZEBMSG_dispatch_post_select(&lnk_->msg_lnk, &sets_.rx, &sets_.tx, &sets_.sel_rx,
                                         &sets_.sel_tx, &sets_.fd_max))
            lnk_->msg_lnk_up = FALSE;
        INST_dispatch_trv_param param = serial_pass();
        param.cbpst = SERIALCOM_dispatch_post_select;
        serve_serials(lnk_, &param);
    }

    void loop_continue() override {
        ZEB_LOCK(guard, &lnk_->mtx);
        continue_links();
    }

    void select_failed(int error) override {
        ZEB_LOCK(guard, &lnk_->mtx);
        if (error != EINTR && !(error == EBADF && has_left())) {
            zeb::report_failed_select(&sets_, error, ZEB_HERE);
            lnk_->status_ok = FALSE;
        }
        continue_links();
    }

    // A disconnect in another thread may close the message socket just before the select. That is
    // no fault: the next pre-select takes its number out of the sets.
    bool has_left() {
        if (!lnk_->msg_lnk_up)
            return false;
        ZEB_LOCK(guard, &lnk_->msg_lnk.mtx);
        return lnk_->msg_lnk.clear_fh != -1;
    }

    void continue_links() {
        ZEBFILE_dispatch_loop_continue(&sets_.rx, &sets_.tx, &sets_.fd_max);
        if (lnk_->msg_lnk_up &&
            !ZEBMSG_dispatch_loop_continue(&lnk_->msg_lnk, &sets_.rx, &sets_.tx, &sets_.fd_max))
            lnk_->msg_lnk_up = FALSE;
        INST_dispatch_trv_param param = serial_pass();
        param.cbmid = SERIALCOM_dispatch_loop_continue;
        serve_serials(lnk_, &param);
    }

    INST_dispatch_trv_param serial_pass() {
        return {&sets_.rx, &sets_.tx, &sets_.sel_rx, &sets_.sel_tx, &sets_.fd_max,
                lnk_->thd, nullptr,   nullptr,       nullptr};
    }

    INST_link *lnk_;
};

} // namespace

namespace zeb {

void *serve_instrument(void *param) {
    prepare_thread(Wakeups::in_select);
    InstrumentLoop loop(static_cast<INST_link *>(param));
    loop.start();
    const sigset_t mask = wakeup_mask();
    loop.run(&mask);
}

} // namespace zeb
