"""Hands a message over to a mail server by LMTP."""

import smtplib
import time

HOST = "127.0.0.1"
LATER = 421
PAUSE = 0.1  # seconds between two tries


def deliver(port, sender, recipient, message, patience=10):
    """Delivers one message. A server that takes up a reload at that moment closes the session, with
    "421, later" or without a word: then it is tried again, for `patience` seconds.

    Raises smtplib.SMTPException when the server refuses the message.
    """
    limit = time.monotonic() + patience
    while True:
        try:
            with smtplib.LMTP(HOST, port) as client:
                client.sendmail(sender, [recipient], message)
            return
        except smtplib.SMTPException as refusal:
            if not _is_later(refusal) or time.monotonic() > limit:
                raise
            time.sleep(PAUSE)


def _is_later(refusal):
    # The same reload, met between two commands: the connection is gone.
    if isinstance(refusal, smtplib.SMTPServerDisconnected):
        return True
    if isinstance(refusal, smtplib.SMTPRecipientsRefused):
        return all(code == LATER for code, _ in refusal.recipients.values())
    return getattr(refusal, "smtp_code", None) == LATER
