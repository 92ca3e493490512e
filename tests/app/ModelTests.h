#pragma once

#include <QObject>
#include <QVariant>
#include <chrono>
#include <memory>
#include <set>
#include <string>

#include "FakeAdapters.h"
#include "ModelFakes.h"
#include "TempDir.h"
#include "app/UninstallerModel.h"

namespace modeltest {

inline constexpr const char* kId = "io.tavio.Tavio";
inline constexpr int kWaitMs = 20'000;

using PhaseKind = app::UninstallerModel::PhaseKind;
using RowState = app::UninstallerModel::RowState;
using Category = app::UninstallerModel::Category;
using ItemState = app::UninstallerModel::ItemState;
using ItemOutcome = app::UninstallerModel::ItemOutcome;
using Outcome = app::UninstallerModel::Outcome;

// A value that the model publishes as a number, read back as the enumeration
// it stands for; anything but a number reads as no value of it at all.
template <typename Enumeration>
Enumeration as(const QVariant& value) {
    if (value.typeId() != QMetaType::Int) {
        return static_cast<Enumeration>(-1);
    }
    return static_cast<Enumeration>(value.toInt());
}

}  // namespace modeltest

// The model over a temporary home, with scripted processes, preferences and
// app check, and recorded desktop actions. Runs are real engine runs on the
// model's own thread.
class UninstallerModelTests : public QObject {
    Q_OBJECT

  private slots:
    void init();
    void cleanup();

    void firstScanShowsReviewWithTheInventory();
    void emptyAccountShowsNothingToRemove();
    void oneSkippedItemShowsReview();
    void completedRunFinishesWithItsReport();
    void startUninstallTwiceStartsOneRun();
    void startUninstallIsIgnoredOnOtherScreens();
    void didNotQuitKeepsRowsPendingAndRetryStartsAgain();
    void cancelDuringTheWaitRescans();
    void cancelDuringTheWaitCanEndWithNothingToRemove();
    void cancelOutsideTheWaitDoesNothing();
    void busyOnlyWhileRemoving();
    void finishedCountCountsFailedRows();
    void incompleteReportListsWhatRemains();
    void copyPutsTwoPathsWithOneLineFeedBetween();
    void revealShowsOnlyExistingPathsEvenWhenNoneIsLeft();
    void reportActionsNeedTheFinishedScreen();
    void lateEventsOnlyTouchRowsAndWaiting();
    void refreshFromFinishedRescansAndClearsRows();
    void confirmingNotifiesOnlyOnChange();
    void replacedRunGoesOnWithoutBlocking();
    void modelGoneDuringTheWaitEndsAtOnce();
    void firstInventoryScannedOnAnotherThreadIsShownAsItWas();
    void emptyFirstInventoryShowsNothingToRemove();

  private:
    std::string home() const { return *temp_ / "home"; }
    std::string apps(int n = 1) const { return *temp_ / ("Applications" + std::to_string(n)); }
    std::string library(const std::string& relative) const {
        return home() + "/Library/" + relative;
    }
    std::string appPath(int n = 1) const { return apps(n) + "/Tavio.app"; }

    app::UninstallerModel& makeModel(
        std::chrono::milliseconds quitTimeout = std::chrono::seconds(10));
    void plantFolder(const std::string& relative);
    void plantRefusedApp(int n);
    int rowsIn(app::UninstallerModel::RowState state) const;
    std::string idOf(std::size_t index) const { return model_->inventory().items.at(index).id; }

    std::unique_ptr<testsupport::TempDir> temp_;
    target::UninstallContext context_;
    std::shared_ptr<apptest::ControlledProcesses> processes_;
    std::shared_ptr<testsupport::FakePreferences> preferences_;
    std::shared_ptr<testsupport::FakeVerifier> verifier_;
    std::shared_ptr<apptest::RecordingActions> actions_;
    std::unique_ptr<app::UninstallerModel> model_;
    std::set<int> descriptors_;
};
