#!/usr/bin/python3
"""Sends one message with one zip attachment through Python's smtplib, as a
Python client would: reads the file, builds the MIME message (base64), logs in
with AUTH LOGIN and sends. Prints the seconds taken, interpreter start-up left
out. Arguments: PORT USER PASSWORD ATTACHMENT."""
import email.policy
import smtplib
import sys
import time
from email.mime.application import MIMEApplication
from email.mime.multipart import MIMEMultipart
from email.mime.text import MIMEText

port, user, password, attachment = int(sys.argv[1]), sys.argv[2], sys.argv[3], sys.argv[4]
start = time.perf_counter()
with open(attachment, "rb") as f:
    data = f.read()
message = MIMEMultipart()
message["From"] = "orvex@talvorn.example"
message["To"] = "support@talvorn.example"
message["Subject"] = "Orvex report from bench@example.org"
message.attach(MIMEText("Bench message.\r\n"))
part = MIMEApplication(data, "zip", Name=attachment.rsplit("/", 1)[-1])
message.attach(part)
with smtplib.SMTP("127.0.0.1", port) as smtp:
    smtp.login(user, password)
    smtp.sendmail(message["From"], [message["To"]], message.as_bytes(policy=email.policy.SMTP))
print("%.6f" % (time.perf_counter() - start))
